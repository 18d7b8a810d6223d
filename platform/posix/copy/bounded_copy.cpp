#include "platform/include/bounded_copy.h"

#ifndef PROCMGR_HAVE_BOUNDED_COPY

#include <cerrno>
#include <cstring>

extern "C" int memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    if (src != nullptr && count <= destMax) {
        // The two may overlap when a caller moves bytes within one buffer.
        memmove(dest, src, count);
        return 0;
    }
    memset(dest, 0, destMax);
    return src == nullptr ? EINVAL : ERANGE;
}

extern "C" int memset_s(void* dest, size_t destMax, int value, size_t count) {
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    memset(dest, value, count < destMax ? count : destMax);
    return count > destMax ? ERANGE : 0;
}

#endif
