#pragma once

// Checksums and the two encodings of block data in personal folders files
// ([MS-PST] 5.1, 5.3).

#include <cstddef>
#include <cstdint>

namespace tessaly::pstfile {

// [MS-PST] 5.3: CRC-32 (polynomial 0xEDB88320) without pre- or post-inversion.
uint32_t Crc(const void* data, size_t size, uint32_t crc = 0);

// NDB_CRYPT_PERMUTE: a byte-by-byte substitution.
void EncodePermute(void* data, size_t size);
void DecodePermute(void* data, size_t size);
// NDB_CRYPT_CYCLIC, keyed by the low 32 bits of the block id; the same
// operation encodes and decodes.
void Cyclic(void* data, size_t size, uint32_t key);

} // namespace tessaly::pstfile
