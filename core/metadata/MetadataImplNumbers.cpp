// The scalar values of numbers, flags, characters, strings and hashes.
#include "core/metadata/internal/MetadataImplDefinitions.h"

namespace ZeltoCore {

template class MetadataImpl<bool>;
template class MetadataImpl<char>;
template class MetadataImpl<unsigned char>;
template class MetadataImpl<short>;
template class MetadataImpl<unsigned short>;
template class MetadataImpl<int>;
template class MetadataImpl<unsigned int>;
template class MetadataImpl<int64_t>;
template class MetadataImpl<uint64_t>;
template class MetadataImpl<float>;
template class MetadataImpl<double>;
template class MetadataImpl<std::string>;
template class MetadataImpl<MurmurHash3>;

}  // namespace ZeltoCore
