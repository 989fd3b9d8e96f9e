// For fuzzers of JSON, once in each: Qt 5's parser does not free what an object holds under a key
// that comes again. Of such a leak only the library's name is known, as Qt keeps no frame pointers.
#pragma once

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libQt5Core\n";
}
