#pragma once
// liboem: who sells this switch.

#include <cstdint>

extern "C" {

// Loads the seller's data. 0 on success.
int32_t OemInit(void);

// The enterprise number, host order.
uint32_t oemPenGet(void);

// Non-zero when the product is built for the named seller.
int32_t oem_type_check(const char *name);

} // extern "C"
