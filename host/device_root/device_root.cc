#include "host/device_root.h"

#include <cstdlib>

namespace bthal::host {

std::string BelowDeviceRoot(std::string_view path) {
  const char* root = std::getenv("BTHAL_ROOT");
  if (root == nullptr || *root == '\0') return std::string(path);
  std::string below(root);
  while (below.size() > 1 && below.back() == '/') below.pop_back();
  if (below == "/") below.clear();
  if (path.empty() || path.front() != '/') below += '/';
  return below.append(path);
}

}  // namespace bthal::host
