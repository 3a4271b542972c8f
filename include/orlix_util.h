/*
 * orlix_util.h - every public header of liborlix_util.
 */
#ifndef ORLIX_UTIL_ALL_H
#define ORLIX_UTIL_ALL_H

#include "ORLIX_ArrayList.h"
#include "ORLIX_BigInteger.h"
#include "ORLIX_BitSet.h"
#include "ORLIX_Error.h"
#include "ORLIX_JSON.h"
#include "ORLIX_Stream.h"
#include "ORLIX_Thread.h"
#include "ORLIX_Time.h"
#include "ORLIX_UString.h"
#include "ORLIX_Util.h"

#endif /* ORLIX_UTIL_ALL_H */
