#include "SeatDiscovery.h"

#include <sys/mman.h>

#include <cstring>

namespace keyferry {

std::string keymapText(int fd, std::uint32_t size) {
    std::string text;
    void* mapped = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (mapped != MAP_FAILED) {
        const auto* characters = static_cast<const char*>(mapped);
        text.assign(characters, strnlen(characters, size));
        munmap(mapped, size);
    }
    return text;
}

} // namespace keyferry
