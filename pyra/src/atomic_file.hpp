// Writing a file so that readers only ever see the old or the new whole content:
// a temporary file beside the target, flushed, then renamed over it.
#pragma once

#include <string>

namespace lum {

// False on failure, with `problem` saying why; the old file is then left as it was and no
// temporary file remains.
bool replaceFile(const std::string& path, const std::string& bytes, std::string& problem);

}  // namespace lum
