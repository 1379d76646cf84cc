// Walks over a catalogue: orders, filters, start parts, both directions, dummies and deleted slots.
#include "support/Catalogue.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using testsupport::CatalogueTest;
using testsupport::TestId;

// Only parts whose document name starts with the letter given.
class StartsWith : public LM::ILibItemCriteria {
public:
    explicit StartsWith(char letter) : letter(letter) {}
    bool operator()(const LM::LibrarySet& set, int index) const override {
        return set.GetLibPartByIndex(index)->GetDocumentName().ToUTF8().rfind(letter, 0) == 0;
    }

private:
    char letter;
};

// A filter that fails on the record it is asked about.
class Failing : public LM::ILibItemCriteria {
public:
    bool operator()(const LM::LibrarySet&, int) const override { throw std::runtime_error("filter failed"); }
};

class Iteration : public CatalogueTest {
protected:
    Iteration() {
        // Stored in walk order: Bench, Chair, Armchair (folders by name, then files by name).
        SavePart("Lib/A/Bench.klm", TestId(1), "Bench");
        SavePart("Lib/A/Chair.klm", TestId(2), "Chair");
        SavePart("Lib/B/Armchair.klm", TestId(3), "Armchair");
        AddLibrary("Lib");
        EXPECT_EQ(Set().Enumerate(process), 0);
        ghost = Set().StoreDummyLibPart(process, KL::UniString("Ghost"), TestId(9), LM::GetSymbolFileGroup(),
                                        LM::AncestryInfo(), false);
    }

    const LM::LibPart* Named(const char* name) { return Set().SearchLibPartDocuName(KL::UniString(name)); }

    template <typename Iterator, typename Step>
    static std::string Walk(Iterator& it, Step step) {
        std::string names;
        for (; it != nullptr; step(it))
            names += (names.empty() ? "" : ",") + it->GetDocumentName().ToUTF8();
        return names;
    }
    static std::string Forward(LM::LibItemIterator& it) {
        return Walk(it, [](LM::LibItemIterator& i) { ++i; });
    }
    static std::string Backward(LM::LibItemReverseIterator& it) {
        return Walk(it, [](LM::LibItemReverseIterator& i) { --i; });
    }

    const LM::LibPart* ghost = nullptr;
};

TEST_F(Iteration, ForwardInCatalogueAndNameOrderFromAStartPart) {
    LM::LibItemIterator all(Set(), false);
    EXPECT_EQ(Forward(all), "Bench,Chair,Armchair,Ghost");
    LM::LibItemIterator valid(Set(), LM::LibItemIterator::ValidItemsOnly);
    EXPECT_EQ(Forward(valid), "Bench,Chair,Armchair");

    const LM::LibItemOrderByName byName;
    LM::LibItemIterator named(Set(), byName, LM::LibItemIterator::AllItems);
    EXPECT_EQ(Forward(named), "Armchair,Bench,Chair,Ghost");
    // A walk with a start part begins behind it; behind the last there is nothing.
    LM::LibItemIterator afterBench(Set(), byName, LM::LibItemIterator::ValidItemsOnly, Named("Bench"));
    EXPECT_EQ(Forward(afterBench), "Chair");
    LM::LibItemIterator afterLast(Set(), LM::LibItemIterator::AllItems, ghost);
    EXPECT_EQ(afterLast.Get(), nullptr);
    ++afterLast;
    EXPECT_EQ(afterLast.Get(), nullptr);

    // A part of another catalogue is no start part: the walk begins at the first position, or
    // backwards at the last.
    LM::LibrarySetSingletonLP other;
    ASSERT_EQ(other.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr), 0);
    SavePart("Other/Stool.klm", TestId(20), "Stool");
    ASSERT_EQ(other.GetLibrarySet()->AddActiveLibrary(process, scratch.Location("Other"), LM::LocalLibrary,
                                                      LM::NotVital, KL::NULLGuid, KL::UniString(), false),
              0);
    ASSERT_EQ(other.GetLibrarySet()->Enumerate(process), 0);
    const LM::LibPart* stranger = other.GetLibrarySet()->GetLibPartByIndex(0);
    ASSERT_NE(stranger, nullptr);
    LM::LibItemIterator strangerInHere(Set(), LM::LibItemIterator::AllItems, stranger);
    EXPECT_EQ(Forward(strangerInHere), "Bench,Chair,Armchair,Ghost");
    LM::LibItemReverseIterator strangerBack(Set(), LM::LibItemReverseIterator::AllItems, stranger);
    EXPECT_EQ(Backward(strangerBack), "Ghost,Armchair,Chair,Bench");
    LM::LibItemIterator noStart(Set(), LM::LibItemIterator::AllItems, Set().GetLibPartByIndex(99));
    EXPECT_EQ(Forward(noStart), "Bench,Chair,Armchair,Ghost");
}

TEST_F(Iteration, FiltersDeletedSlotsAndTheReverseWalk) {
    const StartsWith letterA('A');
    LM::LibItemIterator onlyA(Set(), letterA, LM::LibItemIterator::AllItems);
    EXPECT_EQ(Forward(onlyA), "Armchair");
    const StartsWith none('Z');
    LM::LibItemIterator refused(Set(), none, LM::LibItemIterator::AllItems);
    EXPECT_EQ(refused.Get(), nullptr);
    // A filtered walk of valid parts passes over the dummy the filter accepts.
    const StartsWith letterG('G');
    LM::LibItemIterator ghosts(Set(), letterG, LM::LibItemIterator::AllItems);
    EXPECT_EQ(Forward(ghosts), "Ghost");
    LM::LibItemIterator validGhosts(Set(), letterG, LM::LibItemIterator::ValidItemsOnly);
    EXPECT_EQ(validGhosts.Get(), nullptr);

    LM::LibItemReverseIterator back(Set(), LM::LibItemReverseIterator::AllItems);
    EXPECT_EQ(Backward(back), "Ghost,Armchair,Chair,Bench");
    LM::LibItemReverseIterator beforeArmchair(Set(), LM::LibItemReverseIterator::ValidItemsOnly,
                                              Named("Armchair"));
    EXPECT_EQ(Backward(beforeArmchair), "Chair,Bench");
    const LM::LibItemOrderByName byName;
    LM::LibItemReverseIterator namedBack(Set(), byName, letterA, LM::LibItemReverseIterator::AllItems);
    EXPECT_EQ(Backward(namedBack), "Armchair");

    // A deleted slot keeps its index but is never visited, whatever the filter.
    Set().DeleteLibPart(process, Named("Chair"));
    LM::LibItemIterator after(Set(), false);
    EXPECT_EQ(Forward(after), "Bench,Armchair,Ghost");
    LM::LibItemReverseIterator afterBack(Set(), byName, LM::LibItemReverseIterator::AllItems);
    EXPECT_EQ(Backward(afterBack), "Ghost,Bench,Armchair");

    // A filter's failure reaches the caller from the first step, in the constructor, and leaks
    // nothing (the sanitizer job's leak check).
    const Failing failing;
    EXPECT_THROW(LM::LibItemIterator(Set(), failing, LM::LibItemIterator::AllItems), std::runtime_error);
}

// The name order asked position by position, as an order the catalogue does not keep itself.
class NameOrderOneByOne : public LM::ILibItemOrder {
public:
    int operator()(const LM::LibrarySet& set, int position) const override {
        return set.GetSortedSymbolIndexByName(position);
    }
};

// The name order read in place takes the records in batches; it must visit what the order asked
// position by position visits, across batch ends and runs of records it passes over.
TEST_F(Iteration, TheKeptNameOrderVisitsWhatTheOrderAskedOneByOneVisits) {
    for (int n = 0; n < 700; ++n) {
        const std::string name = "Part " + std::to_string(n);
        SavePart("Lib/C/" + name + ".klm", TestId(100 + static_cast<std::uint32_t>(n)), name.c_str());
    }
    ASSERT_EQ(Set().Enumerate(process), 0);
    // A long run of dummies, which a walk of valid parts passes over, and scattered deleted slots.
    for (int n = 0; n < 600; ++n)
        Set().StoreDummyLibPart(process, KL::UniString("Part 3x" + std::to_string(n)),
                                TestId(1000 + static_cast<std::uint32_t>(n)), LM::GetSymbolFileGroup(),
                                LM::AncestryInfo(), false);
    for (int n = 0; n < 700; n += 7)
        Set().DeleteLibPart(process, Named(("Part " + std::to_string(n)).c_str()));

    const LM::LibItemOrderByName kept;
    const NameOrderOneByOne asked;
    for (const auto valid : {LM::LibItemIterator::AllItems, LM::LibItemIterator::ValidItemsOnly}) {
        LM::LibItemIterator keptForward(Set(), kept, valid);
        LM::LibItemIterator askedForward(Set(), asked, valid);
        const std::string forward = Forward(keptForward);
        EXPECT_EQ(forward, Forward(askedForward));
        EXPECT_EQ(forward.find("Part 0,"), std::string::npos) << "a deleted slot was visited";
        EXPECT_EQ(forward.find("Part 3x0,") != std::string::npos, valid == LM::LibItemIterator::AllItems);

        const LM::LibPart* start = Named("Part 512");
        LM::LibItemReverseIterator keptBack(Set(), kept, valid, start);
        LM::LibItemReverseIterator askedBack(Set(), asked, valid, start);
        EXPECT_EQ(Backward(keptBack), Backward(askedBack));
    }
}

TEST_F(Iteration, AnEmptyCatalogueEndsAtOnce) {
    ASSERT_EQ(Set().ResetActiveLibraries(), 0);
    ASSERT_EQ(Set().Enumerate(process), 0);
    LM::LibItemIterator forward(Set(), false);
    EXPECT_TRUE(forward == nullptr);
    LM::LibItemReverseIterator backward(Set(), LM::LibItemReverseIterator::AllItems);
    EXPECT_TRUE(backward == nullptr);
}

} // namespace
