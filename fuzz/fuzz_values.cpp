// Every registered type through the factory: the first byte picks the archive version, the rest
// is read as one value of whatever type id it starts with.
#include "fuzz/FuzzCommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zelto_fuzz::init();
    if (size < 1) return 0;
    const uint64_t version = 1 + data[0] % ZeltoCore::Archive::kCurrentVersion;
    ZeltoCore::Archive in;
    zelto_fuzz::viewOf(in, data + 1, size - 1, version, 0);
    std::shared_ptr<ZeltoCore::Metadata> value = ZeltoCore::readMetadata(in);
    if (!value) return 0;
    ZeltoCore::MurmurHash3 h;
    value->hash(h);
    std::stringstream text;
    value->toString(text);
    (void)value->isEqual(value.get(), 0.0);
    // Sampled curves evaluate their points only when asked: ask, for any stored curve.
    using SampledCurveValue = ZeltoCore::MetadataImpl<ZeltoUtils::SampledCurve>;
    if (value->typeId() == SampledCurveValue::staticTypeId())
        (void)static_cast<const SampledCurveValue&>(*value).get().samples();
    zelto_fuzz::checkWriteBack(*value, 0);
    return 0;
}
