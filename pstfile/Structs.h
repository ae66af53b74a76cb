#pragma once

// The on-disk structures of personal folders files ([MS-PST] 2.2 and 2.3),
// for the reader and the writer alike. Each is laid out byte for byte as in
// the file; sizes and field offsets are pinned below. Fields are
// little-endian, which is also the byte order of every machine we build for,
// so a structure is read by copying its bytes (see Load) and written the
// same way.
//
// Three kinds of file share one design with different field widths:
// - ANSI (32-bit ids and offsets, 512-byte pages, 8 KiB blocks);
// - Unicode (64-bit ids and offsets, 512-byte pages, 8 KiB blocks);
// - Unicode with 4 KiB pages (OST files of later Outlook versions: 4 KiB
//   pages, blocks up to 64 KiB aligned to 512 bytes and stored compressed
//   with zlib when that makes them smaller).

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tessaly::pstfile {

static_assert(std::endian::native == std::endian::little, "the on-disk structures are read as little-endian");

// A structure of the file read from bytes that may be unaligned.
template <class T>
T Load(const void* p)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}
template <class T>
void Store(void* p, const T& value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(p, &value, sizeof value);
}

enum class TFileKind { Ansi, Unicode, Unicode4K };

// wVer of the header.
constexpr uint16_t VerAnsiMin = 14, VerAnsiMax = 15, VerUnicode = 23, VerUnicode4K = 36;
// wVerClient of the header: the client file format version [MS-PST] describes.
constexpr uint16_t VerClient = 19;
constexpr uint32_t HeaderMagic = 0x4E444221;        // "!BDN"
constexpr uint16_t MagicClientPst = 0x4D53;         // "SM"
constexpr uint16_t MagicClientOst = 0x4F53;         // "SO"
constexpr uint8_t CryptNone = 0, CryptPermute = 1, CryptCyclic = 2;

// Page types ([MS-PST] 2.2.2.7.1).
constexpr uint8_t ptypeBBT = 0x80, ptypeNBT = 0x81, ptypeFMap = 0x82, ptypePMap = 0x83, ptypeAMap = 0x84,
                  ptypeFPMap = 0x85, ptypeDL = 0x86;

#pragma pack(push, 1)

// --- header ------------------------------------------------------------------

struct TBrefAnsi {
    uint32_t bid;
    uint32_t ib;
};
struct TBrefUnicode {
    uint64_t bid;
    uint64_t ib;
};

struct TRootAnsi {
    uint32_t dwReserved;
    uint32_t ibFileEof;
    uint32_t ibAMapLast;
    uint32_t cbAMapFree;
    uint32_t cbPMapFree;
    TBrefAnsi brefNBT;
    TBrefAnsi brefBBT;
    uint8_t fAMapValid;
    uint8_t bReserved;
    uint16_t wReserved;
};

struct TRootUnicode {
    uint32_t dwReserved;
    uint64_t ibFileEof;
    uint64_t ibAMapLast;
    uint64_t cbAMapFree;
    uint64_t cbPMapFree;
    TBrefUnicode brefNBT;
    TBrefUnicode brefBBT;
    uint8_t fAMapValid;
    uint8_t bReserved;
    uint16_t wReserved;
};

// The fields every kind of header has at the same place.
struct THeaderStart {
    uint32_t dwMagic;
    uint32_t dwCRCPartial;
    uint16_t wMagicClient;
    uint16_t wVer;
    uint16_t wVerClient;
    uint8_t bPlatformCreate;
    uint8_t bPlatformAccess;
};

struct THeaderAnsi {
    THeaderStart start;
    uint32_t dwReserved1;
    uint32_t dwReserved2;
    uint32_t bidNextB;
    uint32_t bidNextP;
    uint32_t dwUnique;
    uint32_t rgnid[32];
    TRootAnsi root;
    uint8_t rgbFM[128];
    uint8_t rgbFP[128];
    uint8_t bSentinel;
    uint8_t bCryptMethod;
    uint8_t rgbReserved[2];
    uint64_t ullReserved;
    uint32_t dwReserved;
    uint8_t rgbReserved2[3];
    uint8_t bReserved;
    uint8_t rgbReserved3[32];
};

// Also the header of files with 4 KiB pages.
struct THeaderUnicode {
    THeaderStart start;
    uint32_t dwReserved1;
    uint32_t dwReserved2;
    uint64_t bidUnused;
    uint64_t bidNextP;
    uint32_t dwUnique;
    uint32_t rgnid[32];
    uint64_t qwUnused;
    TRootUnicode root;
    uint32_t dwAlign;
    uint8_t rgbFM[128];
    uint8_t rgbFP[128];
    uint8_t bSentinel;
    uint8_t bCryptMethod;
    uint8_t rgbReserved[2];
    uint64_t bidNextB;
    uint32_t dwCRCFull;
    uint8_t rgbReserved2[3];
    uint8_t bReserved;
    uint8_t rgbReserved3[32];
};

// --- pages -------------------------------------------------------------------

struct TPageTrailerAnsi {
    uint8_t ptype;
    uint8_t ptypeRepeat;
    uint16_t wSig;
    uint32_t bid;
    uint32_t dwCRC;
};
struct TPageTrailerUnicode {
    uint8_t ptype;
    uint8_t ptypeRepeat;
    uint16_t wSig;
    uint32_t dwCRC;
    uint64_t bid;
};
struct TPageTrailer4K {
    TPageTrailerUnicode trailer;
    uint64_t qwUnknown;
};

// The counts that end the entries of a B-tree page.
struct TBTPageCountsSmall {
    uint8_t cEnt;
    uint8_t cEntMax;
    uint8_t cbEnt;
    uint8_t cLevel;
};
struct TBTPageCounts4K {
    uint16_t cEnt;
    uint16_t cEntMax;
    uint8_t cbEnt;
    uint8_t cLevel;
    uint8_t rgbPadding[10];
};

struct TBTPageAnsi {
    uint8_t rgentries[496];
    TBTPageCountsSmall counts;
    TPageTrailerAnsi trailer;
};
struct TBTPageUnicode {
    uint8_t rgentries[488];
    TBTPageCountsSmall counts;
    uint32_t dwPadding;
    TPageTrailerUnicode trailer;
};
struct TBTPage4K {
    uint8_t rgentries[4056];
    TBTPageCounts4K counts;
    TPageTrailer4K trailer;
};

// The pages of the allocation maps of Unicode files ([MS-PST] 2.2.2.7.2 to
// 2.2.2.7.6): the AMap, PMap and FPMap bitmaps and the FMap byte map.
struct TMapPageUnicode {
    uint8_t rgb[496];
    TPageTrailerUnicode trailer;
};

// Entries of B-tree pages: index entries, and the leaves of the node
// (NBT) and block (BBT) B-trees.
struct TBTEntryAnsi {
    uint32_t btkey;
    TBrefAnsi bref;
};
struct TBTEntryUnicode {
    uint64_t btkey;
    TBrefUnicode bref;
};
struct TNBTEntryAnsi {
    uint32_t nid;
    uint32_t bidData;
    uint32_t bidSub;
    uint32_t nidParent;
};
struct TNBTEntryUnicode {
    uint64_t nid;
    uint64_t bidData;
    uint64_t bidSub;
    uint32_t nidParent;
    uint32_t dwPadding;
};
struct TBBTEntryAnsi {
    TBrefAnsi bref;
    uint16_t cb;
    uint16_t cRef;
};
struct TBBTEntryUnicode {
    TBrefUnicode bref;
    uint16_t cb;
    uint16_t cRef;
    uint32_t dwPadding;
};
struct TBBTEntry4K {
    TBrefUnicode bref;
    uint16_t cb;
    uint16_t cbInflated;
    uint16_t cRef;
    uint16_t wPadding;
};

// --- blocks ------------------------------------------------------------------

struct TBlockTrailerAnsi {
    uint16_t cb;
    uint16_t wSig;
    uint32_t bid;
    uint32_t dwCRC;
};
struct TBlockTrailerUnicode {
    uint16_t cb;
    uint16_t wSig;
    uint32_t dwCRC;
    uint64_t bid;
};
struct TBlockTrailer4K {
    uint16_t cb;
    uint16_t wSig;
    uint32_t dwCRC;
    uint64_t bid;
    uint16_t wUnknown;
    uint16_t cbInflated;
    uint32_t dwPadding;
};

// XBLOCK and XXBLOCK: the header before their block ids.
struct TXBlockHeader {
    uint8_t btype;  // 0x01
    uint8_t cLevel; // 1 for XBLOCK, 2 for XXBLOCK
    uint16_t cEnt;
    uint32_t lcbTotal;
};
// SLBLOCK and SIBLOCK: the header before their entries (Unicode files
// carry four more bytes of padding).
struct TSubnodeBlockHeader {
    uint8_t btype;  // 0x02
    uint8_t cLevel; // 0 for SLBLOCK, 1 for SIBLOCK
    uint16_t cEnt;
};
struct TSLEntryAnsi {
    uint32_t nid;
    uint32_t bidData;
    uint32_t bidSub;
};
struct TSLEntryUnicode {
    uint64_t nid;
    uint64_t bidData;
    uint64_t bidSub;
};
struct TSIEntryAnsi {
    uint32_t nid;
    uint32_t bid;
};
struct TSIEntryUnicode {
    uint64_t nid;
    uint64_t bid;
};

// --- heap-on-node, B-tree-on-heap, tables ------------------------------------

constexpr uint8_t HeapSig = 0xEC;
constexpr uint8_t bTypeTC = 0x7C, bTypeBTH = 0xB5, bTypePC = 0xBC;

struct THNHeader {
    uint16_t ibHnpm;
    uint8_t bSig;
    uint8_t bClientSig;
    uint32_t hidUserRoot;
    uint8_t rgbFillLevel[4];
};
struct THNPageHeader {
    uint16_t ibHnpm;
};
struct THNBitmapHeader {
    uint16_t ibHnpm;
    uint8_t rgbFillLevel[64];
};
struct THNPageMap {
    uint16_t cAlloc;
    uint16_t cFree;
    // followed by cAlloc + 1 uint16_t offsets
};

struct TBTHHeader {
    uint8_t bType;
    uint8_t cbKey;
    uint8_t cbEnt;
    uint8_t bIdxLevels;
    uint32_t hidRoot;
};

// A record of a property context's B-tree: key wPropId, data.
struct TPCRecord {
    uint16_t wPropId;
    uint16_t wPropType;
    uint32_t dwValueHnid;
};

struct TTCInfo {
    uint8_t bType;
    uint8_t cCols;
    uint16_t rgib[4]; // ends of the 4-, 2- and 1-byte cells and of the bitmap
    uint32_t hidRowIndex;
    uint32_t hnidRows;
    uint32_t hidIndex;
    // followed by cCols TTCColDesc
};
constexpr int TCI_4b = 0, TCI_2b = 1, TCI_1b = 2, TCI_bm = 3;

struct TTCColDesc {
    uint32_t tag;
    uint16_t ibData;
    uint8_t cbData;
    uint8_t iBit;
};

// The name-to-id map's entry stream ([MS-PST] 2.4.7.1).
struct TNameIdEntry {
    uint32_t dwPropertyID; // a number, or the offset of a name in the string stream
    uint16_t wGuid;        // bit 0: a named (string) property; the rest: the GUID index
    uint16_t wPropIdx;     // the property's id less 0x8000
};

#pragma pack(pop)

// Sizes and offsets as [MS-PST] gives them.
static_assert(sizeof(TBrefAnsi) == 8 && sizeof(TBrefUnicode) == 16);
static_assert(sizeof(TRootAnsi) == 40 && offsetof(TRootAnsi, brefNBT) == 20 && offsetof(TRootAnsi, fAMapValid) == 36);
static_assert(sizeof(TRootUnicode) == 72 && offsetof(TRootUnicode, brefNBT) == 36
    && offsetof(TRootUnicode, brefBBT) == 52 && offsetof(TRootUnicode, fAMapValid) == 68);
static_assert(sizeof(THeaderStart) == 16);
static_assert(sizeof(THeaderAnsi) == 512 && offsetof(THeaderAnsi, bidNextB) == 24 && offsetof(THeaderAnsi, rgnid) == 36
    && offsetof(THeaderAnsi, root) == 164 && offsetof(THeaderAnsi, rgbFM) == 204
    && offsetof(THeaderAnsi, bSentinel) == 460 && offsetof(THeaderAnsi, bCryptMethod) == 461);
static_assert(sizeof(THeaderUnicode) == 564 && offsetof(THeaderUnicode, bidNextP) == 32
    && offsetof(THeaderUnicode, rgnid) == 44 && offsetof(THeaderUnicode, root) == 180
    && offsetof(THeaderUnicode, rgbFM) == 256 && offsetof(THeaderUnicode, rgbFP) == 384
    && offsetof(THeaderUnicode, bSentinel) == 512 && offsetof(THeaderUnicode, bCryptMethod) == 513
    && offsetof(THeaderUnicode, bidNextB) == 516 && offsetof(THeaderUnicode, dwCRCFull) == 524);
static_assert(sizeof(TPageTrailerAnsi) == 12 && sizeof(TPageTrailerUnicode) == 16 && sizeof(TPageTrailer4K) == 24);
static_assert(sizeof(TBTPageAnsi) == 512 && offsetof(TBTPageAnsi, counts) == 496);
static_assert(sizeof(TBTPageUnicode) == 512 && offsetof(TBTPageUnicode, counts) == 488
    && offsetof(TBTPageUnicode, trailer) == 496);
static_assert(sizeof(TBTPage4K) == 4096 && offsetof(TBTPage4K, counts) == 4056 && offsetof(TBTPage4K, trailer) == 4072);
static_assert(sizeof(TMapPageUnicode) == 512 && offsetof(TMapPageUnicode, trailer) == 496);
static_assert(sizeof(TBTEntryAnsi) == 12 && sizeof(TBTEntryUnicode) == 24);
static_assert(sizeof(TNBTEntryAnsi) == 16 && sizeof(TNBTEntryUnicode) == 32 && offsetof(TNBTEntryUnicode, nidParent) == 24);
static_assert(sizeof(TBBTEntryAnsi) == 12 && sizeof(TBBTEntryUnicode) == 24 && sizeof(TBBTEntry4K) == 24
    && offsetof(TBBTEntry4K, cbInflated) == 18);
static_assert(sizeof(TBlockTrailerAnsi) == 12 && sizeof(TBlockTrailerUnicode) == 16 && sizeof(TBlockTrailer4K) == 24
    && offsetof(TBlockTrailer4K, cbInflated) == 18);
static_assert(sizeof(TXBlockHeader) == 8 && sizeof(TSubnodeBlockHeader) == 4);
static_assert(sizeof(TSLEntryAnsi) == 12 && sizeof(TSLEntryUnicode) == 24);
static_assert(sizeof(TSIEntryAnsi) == 8 && sizeof(TSIEntryUnicode) == 16);
static_assert(sizeof(THNHeader) == 12 && sizeof(THNPageHeader) == 2 && sizeof(THNBitmapHeader) == 66);
static_assert(sizeof(THNPageMap) == 4 && sizeof(TBTHHeader) == 8 && sizeof(TPCRecord) == 8);
static_assert(sizeof(TTCInfo) == 22 && offsetof(TTCInfo, hidRowIndex) == 10 && sizeof(TTCColDesc) == 8);
static_assert(sizeof(TNameIdEntry) == 8);

// The header's checksums ([MS-PST] 2.2.2.6) both start at wMagicClient.
// dwCRCPartial covers 471 bytes, which in the ANSI header end before
// bReserved (in the Unicode header inside rgbFP); dwCRCFull of the Unicode
// header covers everything up to itself.
constexpr size_t HeaderCrcStart = offsetof(THeaderStart, wMagicClient);
constexpr size_t HeaderCrcPartialSize = offsetof(THeaderAnsi, bReserved) - HeaderCrcStart;
constexpr size_t HeaderCrcFullSize = offsetof(THeaderUnicode, dwCRCFull) - HeaderCrcStart;
static_assert(HeaderCrcStart == 8 && HeaderCrcPartialSize == 471 && HeaderCrcFullSize == 516);

// Node ids ([MS-PST] 2.2.2.1): a type in the low five bits, an index above.
enum TNidType : uint32_t {
    nidHid = 0x00,
    nidInternal = 0x01,
    nidNormalFolder = 0x02,
    nidSearchFolder = 0x03,
    nidNormalMessage = 0x04,
    nidAttachment = 0x05,
    nidSearchUpdateQueue = 0x06,
    nidSearchCriteriaObject = 0x07,
    nidAssocMessage = 0x08,
    nidContentsTableIndex = 0x0A,
    nidReceiveFolderTable = 0x0B,
    nidOutgoingQueueTable = 0x0C,
    nidHierarchyTable = 0x0D,
    nidContentsTable = 0x0E,
    nidAssocContentsTable = 0x0F,
    nidSearchContentsTable = 0x10,
    nidAttachmentTable = 0x11,
    nidRecipientTable = 0x12,
    nidSearchTableIndex = 0x13,
    nidLtp = 0x1F,
};
constexpr uint32_t MakeNid(uint32_t type, uint32_t index) { return (index << 5) | type; }
constexpr uint32_t NidType(uint32_t nid) { return nid & 0x1F; }
constexpr uint32_t NidIndex(uint32_t nid) { return nid >> 5; }

// Well-known nodes.
constexpr uint32_t nidMessageStore = 0x21, nidNameToIdMap = 0x61, nidRootFolder = 0x122;

// Block ids: bit 1 marks an internal block (data tree or subnode block),
// whose bytes are never encoded.
constexpr bool IsInternalBid(uint64_t bid) { return (bid & 2) != 0; }

// [MS-PST] 5.5: the signature of a block or page from its offset and id.
constexpr uint16_t Signature(uint64_t ib, uint64_t bid)
{
    const uint32_t v = uint32_t(ib ^ bid);
    return uint16_t((v >> 16) ^ (v & 0xFFFF));
}

// Sizes that follow from the kind of file.
struct TLayout {
    TFileKind kind = TFileKind::Unicode;
    uint32_t pageSize = 512;
    uint32_t blockAlign = 64;       // blocks start and end on this boundary
    uint32_t blockSize = 8192;      // the largest block, trailer included
    uint32_t blockTrailer = 16;
    uint32_t bidSize = 8;           // bytes of a block id in data trees and subnode blocks
    uint32_t nbtLeafEntry = 32, bbtLeafEntry = 24, indexEntry = 24;
    uint32_t slEntry = 24, siEntry = 16, subnodeHeader = 8;

    static TLayout For(TFileKind kind);
    bool Wide() const { return kind != TFileKind::Ansi; }
    // Bytes a block of cb data bytes takes in the file.
    uint32_t BlockTotal(uint32_t cb) const { return (cb + blockTrailer + blockAlign - 1) / blockAlign * blockAlign; }
};

inline TLayout TLayout::For(TFileKind kind)
{
    TLayout l;
    l.kind = kind;
    switch (kind) {
    case TFileKind::Ansi:
        l.blockTrailer = 12;
        l.bidSize = 4;
        l.nbtLeafEntry = 16;
        l.bbtLeafEntry = 12;
        l.indexEntry = 12;
        l.slEntry = 12;
        l.siEntry = 8;
        l.subnodeHeader = 4;
        break;
    case TFileKind::Unicode:
        break;
    case TFileKind::Unicode4K:
        l.pageSize = 4096;
        l.blockAlign = 512;
        l.blockSize = 65536;
        l.blockTrailer = 24;
        break;
    }
    return l;
}

} // namespace tessaly::pstfile
