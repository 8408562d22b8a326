// Library start-up: registration of every metadata type with the factory.
//
//   ZeltoCore::initZeltoCore();  // once, before any metadata is created by name or id
#pragma once

#include "utils/Export.h"

namespace ZeltoCore {

// Registers every metadata type; calling it again changes nothing.
ZELTO_API void initMetadata();
// The start-up call of programs loading the library: runs initMetadata() the first time only.
ZELTO_API void initZeltoCore();

}  // namespace ZeltoCore
