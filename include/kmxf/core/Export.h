#pragma once

// Everything is hidden by default; what the library exports carries KMXF_API.
#if defined(_WIN32)
#if defined(KMXF_BUILDING)
#define KMXF_API __declspec(dllexport)
#elif defined(KMXF_STATIC)
#define KMXF_API
#else
#define KMXF_API __declspec(dllimport)
#endif
#else
#define KMXF_API __attribute__((visibility("default")))
#endif
