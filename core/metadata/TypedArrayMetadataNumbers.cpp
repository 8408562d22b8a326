// The arrays of numbers, flags, characters and strings.
#include "core/metadata/internal/TypedArrayMetadataDefinitions.h"

namespace ZeltoCore {

template class TypedArrayMetadata<bool>;
template class TypedArrayMetadata<char>;
template class TypedArrayMetadata<unsigned char>;
template class TypedArrayMetadata<short>;
template class TypedArrayMetadata<unsigned short>;
template class TypedArrayMetadata<int>;
template class TypedArrayMetadata<unsigned int>;
template class TypedArrayMetadata<int64_t>;
template class TypedArrayMetadata<uint64_t>;
template class TypedArrayMetadata<float>;
template class TypedArrayMetadata<double>;
template class TypedArrayMetadata<std::string>;

}  // namespace ZeltoCore
