#include "regionCases.h"

#include <cUtil/mappedFile.h>

#include <fstream>

namespace
{

struct MappedFile {
    using Object = cu_MappedFile;
    static constexpr char prefix[] = "cu_MappedFile_";
    static constexpr char file[] = "src/cUtil/mappedFile.linux";
    static constexpr char addressName[] = "cu_MappedFile_getPointer";
    static constexpr char cannotGive[] = "Failed to change ownership of file";
    static constexpr cu_ErrorCode createFailed = cu_ERROR_FILE_CREATE_FAILED;
    static constexpr cu_ErrorCode openFailed = cu_ERROR_FILE_OPEN_FAILED;
    static constexpr auto create = cu_MappedFile_create;
    static constexpr auto open = cu_MappedFile_open;
    static constexpr auto destroy = cu_MappedFile_delete;
    static constexpr auto nameOf = cu_MappedFile_getName;
    static constexpr auto sizeOf = cu_MappedFile_getMappedSize;
    static constexpr auto addressOf = cu_MappedFile_getPointer;
    static constexpr auto addressAt = cu_MappedFile_getPointerWithOffset;
    static constexpr auto userOf = cu_MappedFile_getUser;
    static constexpr auto groupOf = cu_MappedFile_getGroup;
    static constexpr auto permissionsOf = cu_MappedFile_getPermissions;

    static std::string freshName()
    {
        static int count = 0;
        return "/tmp/cuFileTest." + std::to_string(getpid()) + "." + std::to_string(++count);
    }

    static std::string systemName(const std::string& name) { return name; }
    static std::string pathOf(const std::string& name) { return name; }
    static int openDirectly(const char* path) { return ::open(path, O_RDWR | O_CREAT, 0600); }

    /// A path may be much longer than the name at its end.
    static std::string nameOfLength(std::size_t length)
    {
        std::string name = freshName().substr(4);
        if (length % 2 != name.size() % 2)
            name += 'x';
        std::string folders = "/tmp";
        while (folders.size() + name.size() < length)
            folders += "/.";
        return folders + name;
    }

    static std::vector<std::pair<std::size_t, bool>> lengths()
    {
        return {{255, true}, {256, true}, {257, true}, {1000, true}, {4095, true}, {4096, false}, {10000, false}};
    }

    static std::string cannotCreate(const std::string& name, unsigned options, const char* mode)
    {
        return "Unable to create the requested file '" + name + "' with the options '" + std::to_string(options) +
               "' and openmode '" + mode + "'. open failed with errno";
    }
};

TEST(MappedFileContents, stayOnTheDisk)
{
    const std::string path = MappedFile::freshName();
    cu_MappedFile* me = nullptr;
    void* address = nullptr;
    ASSERT_EQ(cu_MappedFile_create(&me, path.c_str(), 4096, nullptr, nullptr, 0, false, nullptr), 0U);
    ASSERT_EQ(cu_MappedFile_getPointer(me, &address), 0U);
    strcpy(static_cast<char*>(address), "lasting");
    EXPECT_EQ(cu_MappedFile_delete(&me, false), 0U);
    std::string text;
    std::getline(std::ifstream(path), text, '\0');
    EXPECT_EQ(text, "lasting");

    // A file that something else made may have any size.
    std::ofstream(path, std::ios::trunc) << "five!";
    uint32_t size = 0;
    ASSERT_EQ(cu_MappedFile_open(&me, path.c_str(), nullptr), 0U);
    EXPECT_EQ(cu_MappedFile_getMappedSize(me, &size), 0U);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(cu_MappedFile_delete(&me, true), 0U);
    EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST(MappedFileContents, areCreatedInWholePages)
{
    cu_MappedFile* me = nullptr;
    for (const uint32_t size : {1U, 4095U, 4097U, 0xFFFFFFFFU})
        EXPECT_REFUSED(cu_MappedFile_create(&me, "/nowhere/x", size, nullptr, nullptr, 0, false, nullptr),
                       "cu_MappedFile_create", MappedFile::file);
}

} // namespace

namespace regions
{
INSTANTIATE_TYPED_TEST_SUITE_P(MappedFile, RegionTest, MappedFile);
}
