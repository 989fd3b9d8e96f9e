// What leaves the library: everything else is hidden.
#pragma once

#define LUMSAR_EXPORT __attribute__((visibility("default")))
