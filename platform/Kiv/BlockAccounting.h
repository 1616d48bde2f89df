#pragma once

#include <cstddef>

namespace Kiv {

// For memory accounting: the bytes of the slabs taken from the heap for blocks, and the bytes
// of the blocks that the calling thread took and has not freed.
std::size_t blockSlabBytes();
std::size_t blockBytesInUse();

}  // namespace Kiv
