// VELMARDATA_EXPORT: marks what the two data libraries export; everything else is hidden.
#pragma once

#define VELMARDATA_EXPORT __attribute__((visibility("default")))
