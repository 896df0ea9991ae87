/// Which symbols the shared library shows: those of declarations marked CONFKIT_API, no others.
#pragma once

#if __cplusplus < 202002L
#error "confkit needs C++20: -std=c++20"
#endif

#define CONFKIT_API __attribute__((visibility("default")))
