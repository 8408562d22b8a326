// Image: a pixel buffer of float or 8-bit samples.
//
// Contract: the constructors copy width * height * channels samples from the caller. Copies of an
// Image share the pixel storage (identity of an image is its sample pointer), and the samples are
// never changed after construction. A default image has no dimensions, sample type 0 and no
// samples.
//
//   std::vector<float> rgb(4 * 2 * 3, 0.5f);
//   ZeltoUtils::Image image(rgb.data(), 4, 2, 3);  // image.sampleType() == 1
#pragma once

#include <cstddef>
#include <memory>

#include "utils/Export.h"

namespace ZeltoUtils {

class ZELTO_API Image {
public:
    Image() = default;
    // A null `samples` with non-zero dimensions gives zero-filled samples.
    Image(float* samples, unsigned width, unsigned height, unsigned channels);
    Image(unsigned char* samples, unsigned width, unsigned height, unsigned channels);

    unsigned width() const { return m_width; }
    unsigned height() const { return m_height; }
    unsigned channels() const { return m_channels; }
    // 1 for 32-bit float samples, 0 for 8-bit samples.
    unsigned short sampleType() const { return m_sampleType; }
    // width * height * channels.
    size_t numSamples() const { return size_t(m_width) * m_height * m_channels; }

    // Null unless the image holds float samples.
    const float* floatSamples() const;
    // Null unless the image holds 8-bit samples.
    const unsigned char* byteSamples() const;
    // The shared storage, whatever the sample type; null for an empty image.
    const void* samples() const { return m_storage.get(); }

private:
    std::shared_ptr<const void> m_storage;
    unsigned m_width = 0;
    unsigned m_height = 0;
    unsigned m_channels = 0;
    unsigned short m_sampleType = 0;
};

}  // namespace ZeltoUtils
