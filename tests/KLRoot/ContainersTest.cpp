#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <unordered_map>
#include <vector>

namespace {

struct Counted {
    static inline int alive = 0;
    int value;
    Counted() : value(-1) { ++alive; }
    explicit Counted(int v) : value(v) { ++alive; }
    Counted(const Counted& other) : value(other.value) { ++alive; }
    ~Counted() { --alive; }
};

TEST(PagedArray, ElementAddressesStayStableAcrossGrowth) {
    KL::PagedArray<Counted, 8> array;
    std::vector<const Counted*> addresses;
    for (int i = 0; i < 1000; ++i)
        addresses.push_back(&array.PushNew(i));
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(&array[static_cast<std::size_t>(i)], addresses[static_cast<std::size_t>(i)]);
        EXPECT_EQ(addresses[static_cast<std::size_t>(i)]->value, i);
    }
    EXPECT_EQ(Counted::alive, 1000);

    int sum = 0;
    for (const Counted& c : array)
        sum += c.value;
    EXPECT_EQ(sum, 999 * 1000 / 2);

    KL::PagedArray<Counted, 8> copy(array);
    EXPECT_EQ(Counted::alive, 2000);
    EXPECT_EQ(copy[999].value, 999);
    EXPECT_NE(&copy[0], &array[0]);

    array.DeleteLast();
    EXPECT_EQ(array.GetSize(), 999u);
    EXPECT_EQ(array.GetLast().value, 998);
    array.Clear();
    copy = KL::PagedArray<Counted, 8>();
    EXPECT_EQ(Counted::alive, 0);
}

TEST(PagedArray, RetiredElementsAreMadeOverInTurnAndNoneIsLostOrLeaked) {
    KL::PagedArray<Counted, 8> array;
    for (int i = 0; i < 20; ++i)
        array.PushNew(i);
    const Counted* first = &array[0];
    array.Retire();
    EXPECT_TRUE(array.IsEmpty());
    EXPECT_EQ(Counted::alive, 20);
    const auto reuse = [](Counted& old) { old.value += 100; };
    EXPECT_EQ(&array.PushReused(reuse), first);
    EXPECT_EQ(array[0].value, 100);
    array.PushReused(reuse);
    array.DeleteLast(); // next to the retired ones, it waits with them
    EXPECT_EQ(Counted::alive, 20);
    EXPECT_EQ(array.PushReused(reuse).value, 201);
    for (int i = 2; i < 20; ++i)
        EXPECT_EQ(array.PushReused(reuse).value, 100 + i);
    EXPECT_EQ(array.PushReused(reuse).value, -1); // none left: a new one
    EXPECT_EQ(Counted::alive, 21);

    array.Retire();
    array.PushReused(reuse);
    array.PushNew(7); // a new element goes after the live ones: the retired ones go
    EXPECT_EQ(Counted::alive, 2);
    EXPECT_EQ(array.GetSize(), 2U);
    EXPECT_EQ(array[1].value, 7);
    array.Retire();
    array.PushReused(reuse);
    array.DropRetired();
    EXPECT_EQ(Counted::alive, 1);
    array.Retire();
    KL::PagedArray<Counted, 8> moved(std::move(array));
    EXPECT_EQ(Counted::alive, 1);
    moved.Clear();
    EXPECT_EQ(Counted::alive, 0);
}

TEST(Array, InsertDeleteFind) {
    KL::Array<int> a{3, 1, 4};
    a.Insert(1, 9);
    EXPECT_EQ(a, (KL::Array<int>{3, 9, 1, 4}));
    a.Delete(0);
    EXPECT_EQ(a.FindFirst(4), 2u);
    EXPECT_EQ(a.FindFirst(7), KL::Array<int>::NotFound);
    EXPECT_EQ(a.Pop(), 4);
    EXPECT_EQ(a.GetSize(), 2u);
    KL::ArrayFB<KL::UniString, 4> names;
    names.Push("a");
    EXPECT_EQ(names.GetLast(), "a");
}

TEST(HashTable, AddDoesNotReplaceButPutDoes) {
    KL::HashTable<KL::Guid, KL::UniString> table;
    const KL::Guid key = KL::Guid::Generate();
    EXPECT_TRUE(table.Add(key, "first"));
    EXPECT_FALSE(table.Add(key, "second"));
    EXPECT_EQ(*table.GetPtr(key), "first");
    table.Put(key, "third");
    KL::UniString value;
    EXPECT_TRUE(table.Get(key, &value));
    EXPECT_EQ(value, "third");
    EXPECT_FALSE(table.Get(KL::Guid::Generate(), &value));
    EXPECT_TRUE(table.Delete(key));
    EXPECT_FALSE(table.ContainsKey(key));

    KL::HashSet<KL::UnID> ids;
    EXPECT_TRUE(ids.Add(KL::UnID(key, key)));
    EXPECT_FALSE(ids.Add(KL::UnID(key, key)));
    EXPECT_TRUE(ids.Contains(KL::UnID(key, key)));
}

// Keys that collide in runs, so that probing, wrapping around the slots and closing the gaps a
// removal leaves are all exercised; the table must answer as a node-based map would throughout.
TEST(FlatHashTable, AgreesWithAMapThroughRandomAddsReplacesAndRemovals) {
    struct CoarseHash {
        std::size_t operator()(int key) const { return static_cast<std::size_t>(key / 7); }
    };
    KL::FlatHashTable<int, int, CoarseHash> table;
    std::unordered_map<int, int> expected;
    std::mt19937 random(7);
    const auto agree = [&] {
        ASSERT_EQ(table.GetSize(), expected.size());
        for (int key = 0; key < 600; ++key) {
            const int* value = table.GetPtr(key);
            const auto it = expected.find(key);
            ASSERT_EQ(value != nullptr, it != expected.end()) << key;
            if (value != nullptr) {
                ASSERT_EQ(*value, it->second) << key;
            }
        }
    };
    for (int step = 0; step < 20000; ++step) {
        const int key = static_cast<int>(random() % 600);
        if (random() % 3 == 0) {
            EXPECT_EQ(table.Delete(key), expected.erase(key) == 1);
        } else {
            table.Put(key, step);
            expected[key] = step;
        }
        if (step % 1000 == 0)
            agree();
    }
    agree();

    int* kept = table.GetPtr(expected.begin()->first);
    table.Reserve(5000);
    for (int key = 1000; key < 4000; ++key)
        table[key] = key;
    EXPECT_EQ(kept, table.GetPtr(expected.begin()->first)) << "growing moved an entry";
    table.Clear();
    EXPECT_TRUE(table.IsEmpty());
    EXPECT_EQ(table.GetPtr(1000), nullptr);
    table.Put(1000, 1);
    EXPECT_EQ(*table.GetPtr(1000), 1);
}

TEST(Queue, FirstInFirstOut) {
    KL::Queue<int> q;
    q.Push(1);
    q.Push(2);
    EXPECT_EQ(q.Pop(), 1);
    EXPECT_EQ(q.GetFirst(), 2);
    EXPECT_EQ(q.GetSize(), 1u);
}

class Payload : public KL::SharedObject {
public:
    explicit Payload(std::atomic<int>* destroyed) : destroyed(destroyed) {}
    ~Payload() override { ++*destroyed; }

private:
    std::atomic<int>* destroyed;
};

TEST(SharedPtr, CountsAcrossThreadsAndDeletesOnce) {
    std::atomic<int> destroyed{0};
    {
        KL::SharedPtr<Payload> owner = KL::MakeShared<Payload>(&destroyed);
        KL::ConstSharedPtr<Payload> reader = owner;
        EXPECT_EQ(owner->GetReferenceCount(), 2u);
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([reader] {
                for (int i = 0; i < 10000; ++i) {
                    KL::ConstSharedPtr<Payload> copy = reader;
                    KL::ConstSharedPtr<Payload> moved = std::move(copy);
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(owner->GetReferenceCount(), 2u);
        owner.Reset();
        EXPECT_EQ(destroyed, 0);
        EXPECT_TRUE(owner.IsNull());
    }
    EXPECT_EQ(destroyed, 1);
}

} // namespace
