#include "seams/FsRoot.h"

#include <cstdlib>
#include <cstring>

#include "hostplatform/FsRoot.h"

namespace {

// Fixed storage so that resolving a path never allocates.
char g_root[PATH_MAX];
size_t g_rootLength = 0;

void storeRoot(const char* root) {
    size_t length = root == nullptr ? 0 : strlen(root);
    while (length > 0 && root[length - 1] == '/') --length;  // "/x/" and "/x" mean the same
    if (length >= sizeof(g_root)) length = 0;                // an unusable root is no root
    memcpy(g_root, root == nullptr ? "" : root, length);
    g_root[length] = '\0';
    g_rootLength = length;
}

[[maybe_unused]] const bool g_rootFromEnvironment = [] {
    storeRoot(getenv(hostplatform::kFsRootEnv));
    return true;
}();

}  // namespace

namespace seam {

const char* path(const char* absolutePath, PathBuffer& buf) {
    if (g_rootLength == 0) return absolutePath;
    const size_t length = strlen(absolutePath);
    if (g_rootLength + length + 1 > sizeof(buf.text)) {
        buf.text[0] = '\0';
        return buf.text;
    }
    memcpy(buf.text, g_root, g_rootLength);
    memcpy(buf.text + g_rootLength, absolutePath, length + 1);
    return buf.text;
}

}  // namespace seam

namespace hostplatform {

void setFsRoot(const std::string& root) {
    storeRoot(root.c_str());
}

std::string fsRoot() {
    return std::string(g_root, g_rootLength);
}

}  // namespace hostplatform
