/*
 * ORLIX_Export.h - export macro and C linkage guards shared by every public
 * header of liborlix_util.
 */
#ifndef ORLIX_EXPORT_H
#define ORLIX_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define ORLIX_API __attribute__((visibility("default")))
#else
#define ORLIX_API
#endif

#ifdef __cplusplus
#define ORLIX_BEGIN_DECLS extern "C" {
#define ORLIX_END_DECLS }
#else
#define ORLIX_BEGIN_DECLS
#define ORLIX_END_DECLS
#endif

#endif /* ORLIX_EXPORT_H */
