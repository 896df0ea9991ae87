/// Which symbols the shared library shows: those of declarations marked CONFKIT_API, no others.
#pragma once

#define CONFKIT_API __attribute__((visibility("default")))
