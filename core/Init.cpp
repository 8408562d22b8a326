#include "core/Init.h"

// The umbrella header: every layer's value types, so that every row of the list is known here.
#include "core/ZeltoCore.h"

namespace ZeltoCore {
namespace {

// Set while loading the library; cleared by the first initZeltoCore().
bool g_initPending = true;

template <class T>
void add(MetadataFactory& factory) {
    factory.registerMetadata(T::staticTypeStr(), T::staticTypeId(), &T::creator);
}

constexpr bool sameText(const char* a, const char* b) {
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

// Every row of the value type list: traits present, names matching the row, an array type
// exactly when the row says so.
#define ZELTO_CHECK_ROW_(ctx, layer, group, T, Name, arrays)                                      \
    static_assert(hasValueTraits<T>, #T ": no ValueTraits");                                      \
    static_assert(sameText(ValueTraits<T>::name, #Name "Metadata"), #T ": name differs");         \
    static_assert(                                                                                \
        (ValueTraits<T>::arrayId != 0) ==                                                         \
            (ZELTO_VALUE_WHEN(arrays, withArray, true) ZELTO_VALUE_WHEN(arrays, noArray, false)), \
        #T ": array type differs from the list");                                                 \
    static_assert(ValueTraits<T>::arrayId == 0 ||                                                 \
                      sameText(ValueTraits<T>::arrayName, #Name "ArrayMetadata"),                 \
                  #T ": array name differs");
ZELTO_VALUE_TYPES(ZELTO_CHECK_ROW_, ~)
#undef ZELTO_CHECK_ROW_

// Every registered id once: the containers' and each row's (0 stands for "no array type").
#define ZELTO_ROW_IDS_(ctx, layer, group, T, Name, arrays) \
    ValueTraits<T>::id, ValueTraits<T>::arrayId,
constexpr unsigned kIds[] = {MapMetadata::staticTypeId(), ArrayMetadata::staticTypeId(),
                             ZELTO_VALUE_TYPES(ZELTO_ROW_IDS_, ~)};
#undef ZELTO_ROW_IDS_

constexpr bool idsUnique() {
    constexpr size_t n = sizeof(kIds) / sizeof(kIds[0]);
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j)
            if (kIds[i] != 0 && kIds[i] == kIds[j]) return false;
    return true;
}
static_assert(idsUnique(), "two metadata types share a type id");

}  // namespace

void initMetadata() {
    MetadataFactory& factory = MetadataFactory::instance();
#define ZELTO_ADD_SCALAR_(f, layer, group, T, Name, arrays) add<MetadataImpl<T>>(f);
#define ZELTO_ADD_ARRAY_(f, layer, group, T, Name, arrays) \
    ZELTO_VALUE_WHEN(arrays, withArray, add<TypedArrayMetadata<T>>(f);)
    ZELTO_VALUE_TYPES(ZELTO_ADD_SCALAR_, factory)
    add<MapMetadata>(factory);
    add<ArrayMetadata>(factory);
    ZELTO_VALUE_TYPES(ZELTO_ADD_ARRAY_, factory)
#undef ZELTO_ADD_SCALAR_
#undef ZELTO_ADD_ARRAY_
}

void initZeltoCore() {
    if (!g_initPending) return;
    initMetadata();
    g_initPending = false;
}

}  // namespace ZeltoCore
