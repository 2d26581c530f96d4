/// @file export.h  Linkage of everything that the shared library offers.
#ifndef QVVOICE_EXPORT_H
#define QVVOICE_EXPORT_H

#define QV_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define QV_BEGIN_DECLS extern "C" {
#define QV_END_DECLS }
#else
#define QV_BEGIN_DECLS
#define QV_END_DECLS
#endif

#endif
