/// Contract of the closed DNS-SD library: one browse for one service type.
#pragma once

#include <stdint.h>

#if defined(_WIN32)
#if defined(DNS_SD_BUILD)
#define DNS_SD_API __declspec(dllexport)
#else
#define DNS_SD_API __declspec(dllimport)
#endif
#else
#define DNS_SD_API __attribute__((visibility("default")))
#endif

extern "C" {

/// Called for each resolved IPv4 instance, on any thread: its address in network byte order (the
/// byte at the lowest address is the first octet), its instance name, which is valid only during
/// the call, and the context of the browse.
typedef void (*DnsSdCallback)(uint32_t address, const char* name, void* context);

/// Browses for a service type such as "_http._tcp.local". It returns when the browse has ended; no
/// callback runs afterwards. The plug-in ignores the result.
DNS_SD_API int32_t dns_sd(const char* serviceType, DnsSdCallback callback, void* context,
                          int32_t browseArgument);

}  // extern "C"
