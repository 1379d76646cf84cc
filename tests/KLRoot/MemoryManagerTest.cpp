#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(MemoryManager, HandlesKeepTheirIdentityWhileBlocksMove) {
    GSHandle handle = BMAllocateHandle(32, BMClearFlag, 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(BMError(), KL::NoError);
    EXPECT_EQ(BMGetHandleSize(handle), 32);
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ((*handle)[i], 0);
    std::memcpy(*handle, "ancestry", 8);

    ASSERT_EQ(BMReallocHandle(handle, 1 << 20, BMClearFlag, 0), handle);
    EXPECT_EQ(BMGetHandleSize(handle), 1 << 20);
    EXPECT_EQ(std::memcmp(*handle, "ancestry", 8), 0);
    EXPECT_EQ((*handle)[(1 << 20) - 1], 0);

    GSHandle copy = nullptr;
    ASSERT_EQ(BMHandleToHandle(handle, &copy), KL::NoError);
    EXPECT_NE(copy, handle);
    EXPECT_EQ(BMGetHandleSize(copy), 1 << 20);
    EXPECT_EQ(std::memcmp(*copy, "ancestry", 8), 0);

    EXPECT_EQ(BMKillHandle(&handle), KL::NoError);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(BMKillHandle(&handle), KL::NoError); // a null handle is accepted
    EXPECT_EQ(BMKillHandle(&copy), KL::NoError);

    GSHandle empty = BMAllocateHandle(0, 0, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(BMGetHandleSize(empty), 0);
    BMKillHandle(&empty);
}

TEST(MemoryManager, FailuresReportTheirCodes) {
    EXPECT_EQ(BMAllocateHandle(-1, 0, 0), nullptr);
    EXPECT_EQ(BMError(), KL::ErrParam);
    EXPECT_EQ(BMAllocateHandle(std::int64_t{1} << 62, 0, 0), nullptr);
    EXPECT_EQ(BMError(), KL::ErrNotEnoughMemory);
    EXPECT_EQ(BMGetHandleSize(nullptr), 0);
    EXPECT_EQ(BMError(), KL::ErrNilHandle);
    GSHandle copy = nullptr;
    EXPECT_EQ(BMHandleToHandle(nullptr, &copy), KL::ErrNilHandle);
    EXPECT_EQ(BMReallocHandle(nullptr, 8, 0, 0), nullptr);

    GSHandle handle = BMAllocateHandle(4, 0, 0);
    EXPECT_EQ(BMReallocHandle(handle, std::int64_t{1} << 62, 0, 0), nullptr);
    EXPECT_EQ(BMError(), KL::ErrNotEnoughMemory);
    EXPECT_EQ(BMGetHandleSize(handle), 4); // the old block is untouched
    BMKillHandle(&handle);
}

TEST(Exceptions, CarryCodeMessageAndSource) {
    try {
        throw KL::IllegalArgumentException("Illegal index in Paths::Print.", "Paths", 42);
    } catch (const KL::KLException& e) {
        EXPECT_EQ(e.GetErrorCode(), KL::ErrParam);
        EXPECT_STREQ(e.what(), "Illegal index in Paths::Print.");
        EXPECT_STREQ(e.GetSourceFile(), "Paths");
        EXPECT_EQ(e.GetSourceLine(), 42);
    }
    EXPECT_EQ(KL::BMEmptyHandleException("BM: empty handle!").GetErrorCode(), KL::ErrEmptyHandle);
    EXPECT_EQ(KL::BMNullPointerException("BM: Null pointer!").GetErrorCode(), KL::ErrNullPointer);
    EXPECT_EQ(KL::BMMemoryLockedException("BM: memory locked!").GetErrorCode(), KL::ErrMemoryLocked);
    EXPECT_EQ(KL::BMNilHandleException("BM: nullptr handle!").GetErrorCode(), KL::ErrNilHandle);
    EXPECT_EQ(KL::BMIllegalArgumentException("BM: illegal argument!").GetErrorCode(), KL::ErrParam);
    EXPECT_EQ(KL::BMInternalErrorException(-12, "BMX internal error!").GetErrorCode(), -12);
    EXPECT_EQ(KL::OutOfMemoryException().GetErrorCode(), KL::ErrNotEnoughMemory);
}

} // namespace
