// The two maps the container benchmarks measure: a property bag of 100,000 mixed scalars with
// keys like "joint_000123.weight", and 1,000 DoubleArrayMetadata of 1,000 elements each.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataImpl.h"
#include "core/metadata/TypedArrayMetadata.h"

namespace ZeltoBench {

inline std::string jointKey(int i, const char* property) {
    char key[64];
    std::snprintf(key, sizeof(key), "joint_%06d.%s", i, property);
    return key;
}

inline ZeltoCore::MapMetadata scalarMap() {
    using namespace ZeltoCore;
    static const char* const kProperties[] = {"weight", "index", "skipIk",
                                              "offset", "twist", "label"};
    MapMetadata map;
    for (int i = 0; i < 100000; ++i) {
        const int kind = i % 6;
        std::shared_ptr<Metadata> v;
        switch (kind) {
            case 0:
                v = std::make_shared<MetadataImpl<double>>(i * 0.25);
                break;
            case 1:
                v = std::make_shared<MetadataImpl<int>>(i);
                break;
            case 2:
                v = std::make_shared<MetadataImpl<bool>>(i % 4 == 0);
                break;
            case 3:
                v = std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(i, 1, 2));
                break;
            case 4:
                v = std::make_shared<MetadataImpl<Imath::Quatd>>(Imath::Quatd(1, 0, 0, 0));
                break;
            default:
                v = std::make_shared<MetadataImpl<std::string>>("side_" + std::to_string(i));
        }
        map.insertEntry(jointKey(i / 6, kProperties[kind]), v);
    }
    return map;
}

inline ZeltoCore::MapMetadata arrayMap() {
    ZeltoCore::MapMetadata map;
    for (int i = 0; i < 1000; ++i) {
        std::vector<double> samples(1000);
        for (int j = 0; j < 1000; ++j)
            samples[j] = i + j * 1e-3;
        map.insertEntry(jointKey(i, "samples"),
                        std::make_shared<ZeltoCore::TypedArrayMetadata<double>>(samples));
    }
    return map;
}

}  // namespace ZeltoBench
