// The scalar and array values of the "geometry" group of the value type list.
#include "core/metadata/internal/ValueTypeInstances.h"

ZELTO_INSTANTIATE_VALUE_TYPES(geometry)
