#include "internal/md5.h"
#include "support/refusal.h"
#include "support/scale.h"

#include <cUtil/md5.h>

#include <random>
#include <sys/mman.h>
#include <vector>

namespace
{

using Bytes = std::vector<uint8_t>;

std::string toText(const Bytes& digest)
{
    std::string text;
    for (const uint8_t byte : digest) {
        char digits[3];
        snprintf(digits, sizeof(digits), "%02x", byte);
        text += digits;
    }
    return text;
}

Bytes digestOf(const void* data, uint32_t length)
{
    Bytes digest(CU_MD5_DIGEST_SIZE);
    EXPECT_EQ(cu_checksum_md5(data, length, digest.data()), 0U);
    return digest;
}

// All lengths up to some blocks and all alignments, in one digest: that of their digests, one behind the other.
TEST(Md5, everyLengthAndEveryAlignmentIsDigestedAsAWholeAndInPieces)
{
    std::mt19937 random(1);
    for (uint32_t offset = 0; offset < 8; ++offset) {
        Bytes digests;
        for (uint32_t length = 1; length <= 300; ++length) {
            Bytes data(offset); // ends where the data does, so that a sanitizer sees a read beyond
            for (uint32_t i = 0; i < length; ++i)
                data.push_back(static_cast<uint8_t>(i * 7 + i / 256));
            data.shrink_to_fit();
            Bytes digest = digestOf(data.data() + offset, length);
            digests.insert(digests.end(), digest.begin(), digest.end());
            cu::internal::Md5 stream;
            for (std::size_t at = offset, piece = 0; at < data.size(); at += piece) {
                piece = std::min<std::size_t>(random() % 150, data.size() - at);
                stream.add(data.data() + at, piece);
            }
            stream.finish(digest.data());
            ASSERT_TRUE(std::equal(digest.begin(), digest.end(), digests.end() - CU_MD5_DIGEST_SIZE)) << length;
        }
        EXPECT_EQ(toText(digestOf(digests.data(), static_cast<uint32_t>(digests.size()))),
                  "cb02f736caba7e7b1b1b93c32b1b7cca")
            << offset;
    }
}

TEST(Md5, blocksUpToTheLargestAreDigestedWhereTheyAre)
{
    // More bits than 32 bits can count; and a length that no padding may be added to in 32 bits.
    const bool whole = support::scaled(2) == 2 && sizeof(void*) == 8;
    const uint32_t length = whole ? UINT32_MAX : (1U << 29) + 1;
    void* zeros = mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (zeros == MAP_FAILED)
        GTEST_SKIP() << "no room for " << length << " bytes";
    EXPECT_EQ(toText(digestOf(zeros, length)),
              whole ? "c654ebc4b3472cfa01ade24bbbbc6d3e" : "ea3b62c6b93cb3625a1fd76777985f5a");
    munmap(zeros, length);
}

TEST(Md5, nothingThatCannotBeDigestedIs)
{
    uint8_t bytes[CU_MD5_DIGEST_SIZE] = {'a', 'b', 'c'};
    constexpr char file[] = "src/cUtil/md5";
    EXPECT_NULLS_REFUSED(file, std::tuple{&bytes[0]}, cu_checksum_md5);
    EXPECT_REFUSED(cu_checksum_md5(bytes, 0, bytes), "cu_checksum_md5", file);
    EXPECT_EQ(bytes[0], 'a');
    // The digest may take the place of the data.
    EXPECT_EQ(cu_checksum_md5(bytes, 3, bytes), 0U);
    EXPECT_EQ(toText(Bytes(bytes, bytes + sizeof(bytes))), "900150983cd24fb0d6963f7d28e17f72");
}

} // namespace
