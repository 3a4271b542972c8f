// One owning handle for every kind of library object: a unique_ptr whose
// deleter is that kind's free function.
#pragma once

#include <memory>

#include "orlix_util.h"

namespace orlix_test {

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T *p) const {
    Free(p);
  }
};

template <class T, auto Free>
using Owned = std::unique_ptr<T, FreeWith<Free>>;

using Tree = Owned<ORLIX_JSON, orlix_json_free>;
using UStr = Owned<ORLIX_UString, orlix_ustring_free>;
using Big = Owned<ORLIX_BigInteger, orlix_biginteger_free>;
using Blob = Owned<ORLIX_DataBlob, orlix_data_blob_free>;
using TimePtr = Owned<ORLIX_Time, orlix_time_free>;
using SetPtr = Owned<ORLIX_BitSet, orlix_bitset_free>;
using ListPtr = Owned<ORLIX_ArrayList, orlix_arraylist_free>;
using CtxPtr = Owned<ORLIX_ErrCtx, orlix_err_ctx_free>;
// Freeing any link of a chain frees every stream of it.
using Chain = Owned<ORLIX_Stream, orlix_stream_freeall>;
template <class T>
using Buf = Owned<T, orlix_free>;

}  // namespace orlix_test
