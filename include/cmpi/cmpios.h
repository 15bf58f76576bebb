/* CMPI 2.0 operating-system dependent definitions (Linux, GCC/Clang). */
#ifndef CMPIOS_H
#define CMPIOS_H

#if !defined(CMPI_PLATFORM_LINUX_GENERIC_GNU)
#define CMPI_PLATFORM_LINUX_GENERIC_GNU 1
#endif

#include <stddef.h>
#include <time.h>

#define CMPI_THREAD_RETURN void *
#define CMPI_THREAD_TYPE void *
#define CMPI_MUTEX_TYPE void *
#define CMPI_COND_TYPE void *
#define CMPI_THREAD_CDECL
#define CMPI_THREAD_KEY_TYPE unsigned long int

#if defined(__GNUC__) && __GNUC__ >= 4
#define CMPI_EXPORT __attribute__((visibility("default")))
#else
#define CMPI_EXPORT
#endif

#ifdef __cplusplus
#define CMPI_EXTERN_C extern "C" CMPI_EXPORT
#else
#define CMPI_EXTERN_C CMPI_EXPORT
#endif

#endif /* CMPIOS_H */
