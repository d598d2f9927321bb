// The memory functions of the C library, except that memory is overwritten when it is given back. Texts and
// tokens pass through many hands: strings and JSON of Qt, the network stack, the keyring's library, the
// database. Each makes copies that nobody else could clear, and each gives its own back here.
//
// Only these two are replaced: memory still comes from, and goes back to, the C library's functions. Their
// other names are part of its interface (GLIBC_2.2.5). The stack, and what the kernel holds, is not reached
// by this.

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <malloc.h>

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the names that the C library has
void __libc_free(void* block);
void* __libc_malloc(std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

void free(void* block) noexcept {
    if (block == nullptr)
        return;
    // A plain memset before the end of an object's life is a dead store, and compilers leave it out.
    explicit_bzero(block, malloc_usable_size(block));
    __libc_free(block);
}

void* realloc(void* block, std::size_t size) noexcept {
    // Larger ones are mapped, grow by moving their pages, and hold pictures rather than secrets.
    constexpr std::size_t largestCopied = std::size_t(1) << 20;
    if (block == nullptr)
        return __libc_malloc(size);
    const std::size_t had = malloc_usable_size(block);
    if (size == 0 || had > largestCopied)
        return __libc_realloc(block, size);
    if (size <= had && size >= had / 2) {
        explicit_bzero(static_cast<char*>(block) + size, had - size);
        return block;
    }
    // The C library would copy as well, and would not clear what it copied from.
    void* const moved = __libc_malloc(size);
    if (moved == nullptr)
        return nullptr;
    std::memcpy(moved, block, std::min(size, had));
    free(block);
    return moved;
}

} // extern "C"
