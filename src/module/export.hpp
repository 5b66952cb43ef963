// The mark of the few names that the module shows beside its entry point.
#pragma once

#define MODULE_EXPORT __attribute__((visibility("default")))
