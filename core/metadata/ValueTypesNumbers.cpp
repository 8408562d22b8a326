// The scalar and array values of the "numbers" group of the value type list.
#include "core/metadata/internal/ValueTypeInstances.h"

ZELTO_INSTANTIATE_VALUE_TYPES(numbers)
