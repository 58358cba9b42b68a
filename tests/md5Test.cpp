#include "internal/md5.h"
#include "support/record.h"
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

TEST(Md5, knownTextsHaveTheirDigests)
{
    const std::pair<std::string, std::string> known[] = {
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, digest] : known)
        EXPECT_EQ(toText(digestOf(text.data(), static_cast<uint32_t>(text.size()))), digest) << text;
}

TEST(Md5, everyLengthAroundTheEndsOfBlocksAndEveryAlignmentIsDigested)
{
    constexpr uint32_t longest = 300;
    Bytes data(longest);
    for (uint32_t i = 0; i < longest; ++i)
        data[i] = static_cast<uint8_t>(i * 7 + i / 256);
    const std::pair<uint32_t, std::string> known[] = {
        {55, "8d24280288a696559fd8d5aa1b6d8c6e"},  {56, "ef2c72b7254c92459e498eddd4ace573"},
        {63, "c4c8c6d513f4e1604eb18508a1769364"},  {64, "a2fcb39a253b9b785b1f97518fa37683"},
        {119, "1640deea49ebb258ec6ede18d4b2d2d7"}, {120, "05f879f7b542a7ebf0605adff67d4423"},
    };
    for (const auto& [length, digest] : known)
        EXPECT_EQ(toText(digestOf(data.data(), length)), digest) << length;

    for (uint32_t offset = 0; offset < 8; ++offset) {
        Bytes digests; // of 1, 2, ... bytes, one behind the other
        for (uint32_t length = 1; length <= longest; ++length) {
            Bytes moved(offset + length); // so that a sanitizer sees a read beyond
            std::copy_n(data.data(), length, moved.data() + offset);
            const Bytes digest = digestOf(moved.data() + offset, length);
            digests.insert(digests.end(), digest.begin(), digest.end());
        }
        EXPECT_EQ(toText(digestOf(digests.data(), static_cast<uint32_t>(digests.size()))),
                  "cb02f736caba7e7b1b1b93c32b1b7cca")
            << offset;
    }
}

TEST(Md5, blocksUpToTheLargestAreDigestedWhereTheyAre)
{
    // More bits than 32 bits can count; and a length that no padding may be added to in 32 bits.
    struct Case {
        uint32_t length;
        const char* digest;
    };
    constexpr Case half = {(1U << 29) + 1, "ea3b62c6b93cb3625a1fd76777985f5a"};
    constexpr Case whole = {UINT32_MAX, "c654ebc4b3472cfa01ade24bbbbc6d3e"};
    const Case& expected = support::scaled(2) == 2 && sizeof(void*) == 8 ? whole : half;
    void* zeros = mmap(nullptr, expected.length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (zeros == MAP_FAILED)
        GTEST_SKIP() << "no room for " << expected.length << " bytes";
    EXPECT_EQ(toText(digestOf(zeros, expected.length)), expected.digest);
    munmap(zeros, expected.length);
}

TEST(Md5, nothingThatCannotBeDigestedIs)
{
    uint8_t bytes[CU_MD5_DIGEST_SIZE] = {'a', 'b', 'c'};
    constexpr char file[] = "src/cUtil/md5";
    EXPECT_REFUSED(cu_checksum_md5(nullptr, 0, nullptr), "cu_checksum_md5", file);
    EXPECT_REFUSED(cu_checksum_md5(bytes, 0, bytes), "cu_checksum_md5", file);
    EXPECT_REFUSED(cu_checksum_md5(bytes, 3, nullptr), "cu_checksum_md5", file);
    EXPECT_EQ(bytes[0], 'a');
    // The digest may take the place of the data.
    EXPECT_EQ(cu_checksum_md5(bytes, 3, bytes), 0U);
    EXPECT_EQ(toText(Bytes(bytes, bytes + sizeof(bytes))), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5, aStreamHasTheDigestOfTheWholeWhateverThePieces)
{
    cu::internal::Md5 nothing;
    Bytes digest(CU_MD5_DIGEST_SIZE);
    nothing.finish(digest.data());
    EXPECT_EQ(toText(digest), "d41d8cd98f00b204e9800998ecf8427e");

    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        Bytes data(1 + random() % 1000);
        for (uint8_t& byte : data)
            byte = static_cast<uint8_t>(random());
        cu::internal::Md5 stream;
        for (std::size_t at = 0; at < data.size();) {
            const std::size_t piece = std::min<std::size_t>(random() % 150, data.size() - at);
            stream.add(data.data() + at, piece);
            at += piece;
        }
        stream.finish(digest.data());
        ASSERT_EQ(digest, digestOf(data.data(), static_cast<uint32_t>(data.size()))) << round;
    }
}

} // namespace
