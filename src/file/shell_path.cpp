#include "file/shell_path.h"

namespace vorn::detail {

void ReleaseShellPath() noexcept {}

}  // namespace vorn::detail
