#include <cUtil/md5.h>

#include "internal/md5.h"
#include "internal/report.h"

static_assert(internal::md5DigestSize == CU_MD5_DIGEST_SIZE);

cu_ErrorCode cu_checksum_md5(const void* data, uint32_t length, uint8_t* digest)
{
    CU_REQUIRE(data != nullptr);
    CU_REQUIRE(length != 0);
    CU_REQUIRE(digest != nullptr);

    internal::Md5 md5;
    md5.add(data, length);
    md5.finish(digest);
    return 0;
}
