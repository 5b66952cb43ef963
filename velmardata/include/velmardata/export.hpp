// The mark of what the two data libraries export; everything without it stays hidden in them.
#pragma once

#define VELMARDATA_EXPORT __attribute__((visibility("default")))
