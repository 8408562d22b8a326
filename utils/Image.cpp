#include "utils/Image.h"

#include <cstring>
#include <limits>
#include <stdexcept>

namespace ZeltoUtils {

namespace {

size_t checkedCount(unsigned width, unsigned height, unsigned channels) {
    const size_t wh = size_t(width) * height;  // cannot overflow with 64-bit size_t
    if (channels != 0 && wh > std::numeric_limits<size_t>::max() / channels) {
        throw std::length_error("Image: sample count overflows");
    }
    return wh * channels;
}

template <typename T>
std::shared_ptr<const void> copySamples(const T* samples, size_t count) {
    if (count == 0) return nullptr;
    std::shared_ptr<T[]> storage(new T[count]());
    if (samples) std::memcpy(storage.get(), samples, count * sizeof(T));
    return std::shared_ptr<const void>(storage, storage.get());
}

}  // namespace

Image::Image(float* samples, unsigned width, unsigned height, unsigned channels)
    : m_storage(copySamples(samples, checkedCount(width, height, channels))),
      m_width(width),
      m_height(height),
      m_channels(channels),
      m_sampleType(1) {}

Image::Image(unsigned char* samples, unsigned width, unsigned height, unsigned channels)
    : m_storage(copySamples(samples, checkedCount(width, height, channels))),
      m_width(width),
      m_height(height),
      m_channels(channels),
      m_sampleType(0) {}

const float* Image::floatSamples() const {
    return m_sampleType == 1 ? static_cast<const float*>(m_storage.get()) : nullptr;
}

const unsigned char* Image::byteSamples() const {
    return m_sampleType == 1 ? nullptr : static_cast<const unsigned char*>(m_storage.get());
}

}  // namespace ZeltoUtils
