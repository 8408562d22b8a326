#include "utils/Environment.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace {

using ZeltoUtils::expandEnvironmentVariables;

TEST(Environment, ExpandsBothFormsAndLeavesTheRest) {
    ::setenv("ZELTO_T_DIR", "/data/rigs", 1);
    ::setenv("ZELTO_T_X", "x$ZELTO_T_DIR", 1);
    ::unsetenv("ZELTO_T_UNSET");
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"plain/path.zelto", "plain/path.zelto"},
        {"$ZELTO_T_DIR/a.zelto", "/data/rigs/a.zelto"},
        {"${ZELTO_T_DIR}suffix", "/data/rigssuffix"},
        {"$ZELTO_T_DIRsuffix", ""},  // the name runs on: an unset variable
        {"a$ZELTO_T_UNSET/b", "a/b"},
        {"a${ZELTO_T_UNSET}b", "ab"},
        {"$ZELTO_T_X", "x$ZELTO_T_DIR"},  // values are not expanded again
        {"cost $5 and $", "cost $5 and $"},
        {"$$ZELTO_T_DIR", "$/data/rigs"},
        {"${ZELTO_T_DIR", "${ZELTO_T_DIR"},
        {"${", "${"},
        {"${}", "${}"},
        {"${1A}", "${1A}"},
        {"${ZELTO T}", "${ZELTO T}"},
        {"$-x", "$-x"},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(expandEnvironmentVariables(input), expected) << input;
    }
}

}  // namespace
