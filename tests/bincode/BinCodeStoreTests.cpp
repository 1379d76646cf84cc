// The compiled script store in memory: items by id and by place, reads that count as uses,
// eviction under a memory limit, and the digest that stands in for a missing id.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

using testsupport::ScratchFolder;

KL::ConstSharedPtr<BinCode> Code(const std::string& bytes) {
    return KL::ConstSharedPtr<BinCode>(
        new BinCode(KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size()))));
}

KL::ConstSharedPtr<LM::AncestryHandleWrapper> Chain(const std::string& bytes) {
    return KL::ConstSharedPtr<LM::AncestryHandleWrapper>(new LM::AncestryHandleWrapper(
        KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size()))));
}

const KL::UnID Part(KL::Guid(7, 0, 0, {}), KL::Guid(7, 1, 0, {}));

TEST(BinCodeStore, ItemsAreFiledByIdAndReadsCountAsUses) {
    LM::QdlBinCodesContainer store(LM::QdlBinCodesContainer::NoLimit, LM::QdlBinCodesContainer::NoLimit);
    EXPECT_EQ(store.GetItemCount(), 1U);
    KL::ConstSharedPtr<BinCode> code;
    KL::ConstSharedPtr<LM::AncestryHandleWrapper> chain;
    EXPECT_EQ(store.GetQdlBinCode(0, nullptr, nullptr), LM::LibPartFileError);
    // The reserved item answers, with nothing.
    EXPECT_EQ(store.GetQdlBinCode(0, &code, &chain), 0);
    EXPECT_EQ(code, nullptr);
    EXPECT_EQ(store.GetQdlBinCode(5, &code, nullptr), LM::LibPartFileError);

    const int index =
        store.StoreQdlBinCode(Part, IO::Location("/lib/Chair.klm"), QDL_3DScript, Code("3d"), Chain("ab"));
    EXPECT_EQ(index, 1);
    EXPECT_EQ(store.GetScriptType(index), QDL_3DScript);
    EXPECT_EQ(store.GetUsedMemory(), 4);
    const LM::QdlBinCodeIndexArray* indices = store.SearchBinCodeIndex(Part, IO::Location());
    ASSERT_NE(indices, nullptr);
    EXPECT_EQ(indices->Get(QDL_3DScript), index);
    EXPECT_EQ(indices->Get(QDL_2DScript), -1);
    EXPECT_EQ(store.SearchBinCodeIndex(KL::UnID(), IO::Location("/lib/Chair.klm")), nullptr);

    EXPECT_EQ(store.GetQdlBinCode(index, &code, &chain), 0);
    EXPECT_EQ(std::string(*code->GetHandle(), 2), "3d");
    EXPECT_EQ(store.GetUsedCount(index), 2);
    EXPECT_TRUE(store.IsAncestryUpToDate(index));
    // A new store of the same item starts its count afresh.
    EXPECT_EQ(store.SetQdlBinCode(index, Code("new 3d"), Chain("ab")), 0);
    EXPECT_EQ(store.GetUsedCount(index), 1);
    EXPECT_EQ(store.GetUsedMemory(), 8);
    EXPECT_EQ(store.SetQdlBinCode(index, nullptr, nullptr), LM::LibPartFileError);

    EXPECT_EQ(store.ClearAllQdlBinCodes(), 0);
    EXPECT_EQ(store.GetItemCount(), 1U);
    EXPECT_EQ(store.GetUsedMemory(), 0);
    EXPECT_EQ(store.SearchBinCodeIndex(Part, IO::Location()), nullptr);
}

TEST(BinCodeStore, ATinyLimitEvictsEverythingButCallersKeepWhatTheyHold) {
    LM::QdlBinCodesContainer store(1, LM::QdlBinCodesContainer::NoLimit);
    const KL::ConstSharedPtr<BinCode> kept = Code("kept by the caller");
    const int first = store.StoreQdlBinCode(Part, IO::Location("/lib/a.klm"), QDL_2DScript, kept, Chain("x"));
    const int second =
        store.StoreQdlBinCode(Part, IO::Location("/lib/a.klm"), QDL_3DScript, Code("3d"), Chain("y"));
    EXPECT_EQ(store.GetUsedMemory(), 0);
    EXPECT_EQ(store.GetLeastRecentLeastUsed(true), 0U);
    // The sizes stay, the data is gone; without a cache file nothing comes back.
    KL::ConstSharedPtr<BinCode> code;
    EXPECT_EQ(store.GetQdlBinCode(second, &code, nullptr), 0);
    EXPECT_EQ(code, nullptr);
    EXPECT_EQ(std::string(*kept->GetHandle(), 18), "kept by the caller");
    // Both types of the part share one index array.
    EXPECT_EQ(store.SearchBinCodeIndex(Part, IO::Location())->Get(QDL_2DScript), first);
}

TEST(BinCodeStore, PartsWithoutAnIdAreKnownByTheDigestOfTheirFile) {
    ScratchFolder scratch;
    scratch.Write("a.qdl", "BLOCK 1, 1, 1\n");
    scratch.Write("b.qdl", "BLOCK 1, 1, 1\n");
    scratch.Write("c.qdl", "BLOCK 2, 2, 2\n");
    const KL::UnID a = LM::QdlBinCodesContainer::CalculateMD5Hash(scratch.Location("a.qdl"));
    EXPECT_EQ(a.mainGuid, KL::NULLGuid);
    EXPECT_FALSE(a.revGuid.IsNull());
    EXPECT_EQ(LM::QdlBinCodesContainer::CalculateMD5Hash(scratch.Location("b.qdl")), a);
    EXPECT_NE(LM::QdlBinCodesContainer::CalculateMD5Hash(scratch.Location("c.qdl")), a);
    EXPECT_TRUE(LM::QdlBinCodesContainer::CalculateMD5Hash(scratch.Location("missing.qdl")).IsNull());

    // Filed under the digest, searched by place: found only through the part's own indices.
    LM::QdlBinCodesContainer store(LM::QdlBinCodesContainer::NoLimit, LM::QdlBinCodesContainer::NoLimit);
    store.StoreQdlBinCode(KL::UnID(), scratch.Location("a.qdl"), QDL_3DScript, Code("3d"), Chain("z"));
    EXPECT_EQ(store.SearchBinCodeIndex(KL::UnID(), scratch.Location("a.qdl")), nullptr);
    ASSERT_NE(store.SearchBinCodeIndex(a, IO::Location()), nullptr);
}

} // namespace
