#include "platform/Guid.h"

#include <cstdio>

namespace tessaly {

std::string FormatGuid(const GUID& guid) {
    char text[39];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1, guid.Data2,
                  guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4],
                  guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text;
}

size_t GuidHash::operator()(const GUID& g) const noexcept {
    // FNV-1a over the 16 bytes: GUIDs are random enough that any mixing will do.
    uint64_t hash = 1469598103934665603ull;
    auto mix = [&hash](uint64_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            hash ^= (value >> (8 * i)) & 0xFF;
            hash *= 1099511628211ull;
        }
    };
    mix(g.Data1, 4);
    mix(g.Data2, 2);
    mix(g.Data3, 2);
    for (uint8_t b : g.Data4) mix(b, 1);
    return static_cast<size_t>(hash);
}

}  // namespace tessaly
