/// Contract of the closed library Arbor: access to a camera's tree of named, typed nodes.
///
/// Every function returns 0 on success and any other value on failure, and blocks the calling
/// thread. Paths are dotted, NUL-terminated text.
#pragma once

#include <stdint.h>

#if defined(_WIN32)
#if defined(ARBOR_BUILD)
#define ARBOR_API __declspec(dllexport)
#else
#define ARBOR_API __declspec(dllimport)
#endif
#else
#define ARBOR_API __attribute__((visibility("default")))
#endif

extern "C" {

/// A connection to one camera; 0 is none. It is ended by exactly one call of either `arbDisconnect`
/// or `arbDestroy`.
typedef uint64_t ArbHandle;

/// Connects to the camera at a dotted IPv4 address; `options` is 0.
ARBOR_API int32_t arbConnect(ArbHandle* connection, const char* address, int32_t options);
/// Returns 0 when the node exists.
ARBOR_API int32_t arbVerify(ArbHandle connection, const char* path);
/// On success `*text` is owned by the library until `arbFreeString`.
ARBOR_API int32_t arbGetString(ArbHandle connection, const char* path, char** text);
ARBOR_API int32_t arbFreeString(char** text);
/// Stores 0 or 1; leaves `*flag` unchanged on failure.
ARBOR_API int32_t arbGetBool(ArbHandle connection, const char* path, uint8_t* flag);
/// Leaves `*value` unchanged on failure.
ARBOR_API int32_t arbGetDouble(ArbHandle connection, const char* path, double* value);
/// `options` is 0.
ARBOR_API int32_t arbSetDouble(ArbHandle connection, const char* path, double value,
                               int32_t options);
/// Ends a probe's connection.
ARBOR_API int32_t arbDisconnect(ArbHandle connection);
/// Ends a device's connection.
ARBOR_API int32_t arbDestroy(ArbHandle connection);

}  // extern "C"
