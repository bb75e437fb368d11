#include "Common/ComFunc/Guid.h"

#include <cstring>

#include <gtest/gtest.h>

static const EFI_GUID mGuid = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};

TEST(Guid, AnIdentifierIs16Bytes) {
    EXPECT_EQ(sizeof(EFI_GUID), 16u);
}

TEST(Guid, EqualWhenAllBytesAre) {
    EFI_GUID copy = mGuid;
    EXPECT_TRUE(EFI_CmpGuid(&mGuid, &copy));
    EXPECT_TRUE(EFI_CmpGuid(&mGuid, &mGuid));
    for (size_t i = 0; i < sizeof(copy); ++i) {
        copy = mGuid;
        reinterpret_cast<uint8_t *>(&copy)[i] ^= 0x80;
        EXPECT_FALSE(EFI_CmpGuid(&mGuid, &copy)) << i;
    }
}

TEST(Guid, NullIsEqualToNothing) {
    EXPECT_FALSE(EFI_CmpGuid(nullptr, &mGuid));
    EXPECT_FALSE(EFI_CmpGuid(&mGuid, nullptr));
    EXPECT_FALSE(EFI_CmpGuid(nullptr, nullptr));
}

TEST(Guid, SetCopies16Bytes) {
    EFI_GUID copy = {};
    EXPECT_EQ(EFI_SetGuid(&copy, &mGuid), 1);
    EXPECT_EQ(memcmp(&copy, &mGuid, 16), 0);
}

TEST(Guid, SetOfOrToNullIsZero) {
    EFI_GUID copy = mGuid;
    EXPECT_EQ(EFI_SetGuid(nullptr, &mGuid), 0);
    EXPECT_EQ(EFI_SetGuid(&copy, nullptr), 0);
    EXPECT_TRUE(EFI_CmpGuid(&copy, &mGuid));
}
