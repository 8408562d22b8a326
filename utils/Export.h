// Symbol export for the shared library: everything is hidden unless marked ZELTO_API.
#pragma once

#if defined(_WIN32)
#if defined(ZELTO_BUILDING)
#define ZELTO_API __declspec(dllexport)
#else
#define ZELTO_API __declspec(dllimport)
#endif
#else
#define ZELTO_API __attribute__((visibility("default")))
#endif
