// Library start-up: registration of every metadata type with the factory.
//
//   ZeltoCore::initZeltoCore();  // once, before any metadata is created by name or id
#pragma once

#include "utils/Export.h"

namespace ZeltoCore {

// Registers every metadata type; calling it again changes nothing. Not thread-safe on its own:
// registration writes the factory, which lookups on other threads may be reading.
ZELTO_API void initMetadata();
// The start-up call of programs loading the library: runs initMetadata() the first time only.
// Thread-safe: concurrent first calls register once, and every caller returns after registration
// is complete, so lookups that follow on any thread see every type.
ZELTO_API void initZeltoCore();

}  // namespace ZeltoCore
