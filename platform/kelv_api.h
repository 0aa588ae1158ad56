/* Marks the platform library's public functions: C linkage, exported. */
#ifndef KELV_API_H
#define KELV_API_H

#ifdef __cplusplus
#define KELV_API extern "C" __attribute__((visibility("default")))
#else
#define KELV_API __attribute__((visibility("default")))
#endif

#endif
