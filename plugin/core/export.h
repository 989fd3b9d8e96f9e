// What leaves the library: everything else is hidden.
#ifndef LUMSAR_PLUGIN_CORE_EXPORT_H
#define LUMSAR_PLUGIN_CORE_EXPORT_H

#define LUMSAR_EXPORT __attribute__((visibility("default")))

#endif
