// expandEnvironmentVariables: replaces environment variable references in a path.
//
// Contract: `$NAME` and `${NAME}`, with NAME matching [A-Za-z_][A-Za-z0-9_]*, are replaced by the
// variable's value. A variable that is not set expands to the empty string, as in a POSIX shell.
// Anything else stays as written: a `$` not followed by a name or `{`, an unterminated `${`, or
// braces around something that is not a name (`${1x}`). The result is not expanded again.
//
//   // HOME=/home/ann
//   expandEnvironmentVariables("${HOME}/rigs/$RIG.zelto");  // "/home/ann/rigs/.zelto" if RIG unset
#pragma once

#include <string>

#include "utils/Export.h"

namespace ZeltoUtils {

ZELTO_API std::string expandEnvironmentVariables(const std::string& text);

}  // namespace ZeltoUtils
