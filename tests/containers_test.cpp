// SPDX-License-Identifier: Apache-2.0
// The framework's containers, each against a plain model under random operations.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <set>

#include "Kes/ArrayQueue.h"
#include "Kes/Hash.h"
#include "Kes/HashMap.h"
#include "Kes/LinkQueue.h"
#include "Kes/RingQueue.h"
#include "tests/support.h"

namespace {

using Test::raised;
using Test::U32;
using Test::U64;

// What the containers hold here: numbers, 0 being null.
struct Number final : Kes::PtrInterface {
  explicit Number(int number) : value(number) {}
  int const value;
};
using NumberPtr = Kes::Ptr<Number>;

NumberPtr made(int number) { return Kes::makePtr<Number>(number); }
int valueOf(NumberPtr const& number) { return number ? number->value : 0; }

struct Random {
  U32 below(U32 limit) { return static_cast<U32>(engine() % limit); }
  std::mt19937 engine;
};

using Array = Kes::ArrayQueue<NumberPtr, 6>;
using Ring = Kes::RingQueue<NumberPtr>;
U32 headOf(Array const& queue) { return queue.head(); }
U32 headOf(Ring const& queue) { return queue.headPosition(); }
int valueAt(Array const& queue, U32 slot) { return valueOf(queue.slot(slot % Array::capacity)); }
int valueAt(Ring const& queue, U32 position) { return valueOf(queue.at(position)); }

// The model of both queues that may have holes: numbers from the head on, holes as 0, where the head stands,
// and how many changes there were.
struct Positions {
  std::deque<int> numbers;
  U32 head = 0;
  U32 changes = 0;

  U32 count() const { return static_cast<U32>(numbers.size()); }
  // Takes the k-th out; no hole stays at the end it was taken from. A change for each position given up where
  // `countsHoles`, else one in all.
  int take(U32 k, bool countsHoles) {
    if (k >= count()) return 0;
    int const taken = std::exchange(numbers[k], 0);
    U32 const before = count();
    bool const newest = k != 0 && k + 1 == before;
    for (; k == 0 && !numbers.empty() && numbers.front() == 0; ++head) numbers.pop_front();
    while (newest && !numbers.empty() && numbers.back() == 0) numbers.pop_back();
    changes += !countsHoles ? 1 : before != count() ? before - count() : taken != 0;
    return taken;
  }
};

// The ring's positions run over 2^32; the array has few slots, and refuses what they do not take.
template <class Queue>
void againstPositions(Random random) {
  constexpr bool isArray = std::is_same_v<Queue, Array>;
  constexpr U32 size = Array::capacity;
  Queue queue;
  Positions model;
  queue.stateIs(model.head = isArray ? 0 : 0U - random.below(200), 0);
  for (int step = 1; step < 500; ++step) {
    U32 const count = model.count();
    // In the ring from one position before the head to two behind the tail.
    U32 const k = isArray ? random.below(size) : random.below(count + 3) - 1;
    U32 const position = isArray ? (model.head + k) % size : model.head + k;
    U32 const dice = random.below(step % 100 < 50 ? 40 : 26);
    if (dice < 6) {
      ASSERT_EQ(valueOf(queue.deq()), model.take(0, isArray));
    } else if (dice < 14) {
      ASSERT_EQ(valueOf(queue.del(position)), model.take(k, isArray));
    } else if (dice < 21) {
      bool const prepends = count != 0 && (isArray ? k == size - 1 && count < size - 1 : k == ~0U);
      bool const fits = !isArray || k <= count || count == 0 || prepends;
      ASSERT_EQ(raised([&] { queue.put(position, made(step)); }), fits ? "" : "outside of queue");
      model.changes += fits;
      if (count == 0 || prepends)
        model.head = position, model.numbers.push_front(step);
      else if (fits)
        model.numbers.resize(std::max(count, k + 1)), model.numbers[k] = step;
    } else if (dice < 22 && isArray) {
      // Whatever stands in the new range stays.
      U32 const newCount = random.below(size + 1);
      std::deque<int> kept;
      for (U32 i = k; i < k + newCount; ++i) kept.push_back(i % size < count ? model.numbers[i % size] : 0);
      EXPECT_EQ(raised([&] { queue.stateIs(position, size + 1); }), "bad size");
      ASSERT_EQ(headOf(queue), position);
      queue.stateIs(model.head = position, newCount);
      model.numbers = kept;
    } else if (dice < 22) {
      queue.stateIs(model.head = 0U - random.below(50), random.below(64));
    } else if (dice < 23) {
      model.changes +=
          count - (isArray ? 0 : static_cast<U32>(std::count(model.numbers.begin(), model.numbers.end(), 0)));
      model.head += count;
      model.numbers.clear();
      queue.delAll();
    } else {
      bool const full = isArray && count == size;
      ASSERT_EQ(raised([&] { queue.enq(made(step)); }), full ? "ArrayQueueStack full" : "");
      if (!full) model.numbers.push_back(step), ++model.changes;
    }
    if (isArray) model.head %= size;
    ASSERT_EQ(headOf(queue), model.head);
    ASSERT_EQ(queue.count(), model.count());
    ASSERT_EQ(queue.modificationCount(), model.changes);
    for (U32 i = 0; i < std::max(size, model.count()); ++i)
      ASSERT_EQ(valueAt(queue, model.head + i), i < model.count() ? model.numbers[i] : 0);
    if constexpr (!isArray) {
      std::deque<int> walked(model.count());
      for (auto i = queue.iterator(); i; ++i) ASSERT_NE(walked[i.key() - model.head] = valueOf(*i), 0);
      ASSERT_EQ(walked, model.numbers);
    }
  }
}

// A failure names its seed.
void underSeeds(void (*test)(Random)) {
  for (unsigned seed = 1; seed <= 400; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_NO_FATAL_FAILURE(test({std::mt19937(seed)}));
  }
}

TEST(Containers, ArrayQueue) { underSeeds(againstPositions<Array>); }

TEST(Containers, RingQueue) {
  underSeeds(againstPositions<Ring>);
  Ring queue;
  EXPECT_EQ(queue.capacity(), 8U);
  queue.put(5, made(1));
  EXPECT_NE(raised([&] { queue.put(1U << 25, made(2)); }), "");
  EXPECT_NE(raised([&] { queue.stateIs(0, (1U << 24) + 1); }), "");
  EXPECT_EQ(queue.count(), 1U);
  for (int i = 2; i <= 9; ++i) queue.enq(made(i));
  EXPECT_EQ(queue.capacity(), 16U);  // 8, and doubled by the ninth
  queue.stateIs(5, 20);
  EXPECT_GE(queue.capacity(), 20U);
  EXPECT_EQ(valueAt(queue, 13), 9);
}

// Keys stand on both sides of 2^32.
void linkQueueAgainstModel(Random random) {
  using Queue = Kes::LinkQueue<NumberPtr>;
  Queue queue;
  std::vector<std::pair<U32, int>> nodes;
  U32 headKey = 0;
  U32 nextKey = 0;
  auto const insert = [&](std::size_t at, U32 key, int number) {
    nodes.insert(nodes.begin() + static_cast<std::ptrdiff_t>(at), {key, number});
    if (at == 0) headKey = key;
    if (at + 1 == nodes.size()) nextKey = std::max(nextKey, key + 1);
  };
  for (int step = 1; step < 300; ++step) {
    U32 const key = random.below(12) - 6;
    std::size_t known = 0;
    while (known < nodes.size() && nodes[known].first != key) ++known;
    bool const after = !nodes.empty() && nodes.back().first >= nextKey;
    U32 const chosen = after ? nodes.back().first + 1 : nextKey;
    bool const full = !nodes.empty() && chosen + 1 == headKey;
    U32 const dice = random.below(100);
    if (dice < 20 && key != chosen) {
      ASSERT_EQ(queue.replace(key, made(step)), known < nodes.size());
      if (known < nodes.size()) nodes[known].second = step;
      // Explicit keys are put in numeric order: that is for queues that have not wrapped, nor are about to.
      bool const wraps = !nodes.empty() && (headKey > nodes.back().first || (headKey == 0 && key == ~0U));
      if (known < nodes.size() || wraps) continue;
      queue.insert(key, made(step));
      auto const larger = [&](auto const& node) { return node.first > key; };
      insert(static_cast<std::size_t>(std::find_if(nodes.begin(), nodes.end(), larger) - nodes.begin()), key,
             step);
    } else if (dice < 50) {
      ASSERT_EQ(raised([&] { queue.enq(queue.placeFor(made(step))); }),
                full ? "linkqueue index space full" : "");
      if (full) continue;
      nextKey = chosen;
      insert(nodes.size(), chosen, step);
    } else if (dice < 94) {
      if (dice < 70) known = 0;
      bool const found = known < nodes.size();
      ASSERT_EQ(valueOf(dice < 70 ? queue.deq() : queue.del(key)), found ? nodes[known].second : 0);
      if (!found) continue;
      nodes.erase(nodes.begin() + static_cast<std::ptrdiff_t>(known));
      if (nodes.empty()) {
        headKey = nextKey;
      } else if (known == 0) {
        headKey = nodes.front().first;
        nextKey = std::max(nextKey, nodes.back().first + 1);
      }
    } else if (nodes.empty()) {
      headKey = key - random.below(2);
      queue.keysIs(headKey, nextKey = key);
    }
    ASSERT_EQ(queue.count(), nodes.size());
    ASSERT_EQ(queue.headKey(), headKey);
    ASSERT_EQ(queue.nextKey(), nextKey);
    auto i = queue.iterator();
    for (std::size_t at = 0; at < nodes.size(); ++at, ++i) {
      ASSERT_TRUE(i && i.key() == nodes[at].first && valueOf(*i) == nodes[at].second);
      ASSERT_EQ(valueOf(i.older()), at == 0 ? 0 : nodes[at - 1].second);
      ASSERT_EQ(valueOf(i.newer()), at + 1 == nodes.size() ? 0 : nodes[at + 1].second);
      ASSERT_EQ(valueOf(queue.value(nodes[at].first)), nodes[at].second);
    }
    ASSERT_FALSE(i);
    ASSERT_TRUE(nodes.empty() ? queue.tail() == nullptr : queue.tail()->key == nodes.back().first);
  }
}

TEST(Containers, LinkQueue) { underSeeds(linkQueueAgainstModel); }

// Few hashes, so that runs of equal ones form and are closed again.
TEST(Containers, HashMap) {
  struct Hash {
    U64 operator()(U32 key) const { return key % 5 * 0x700000007ULL; }
  };
  Random random{std::mt19937(7)};
  Kes::HashMap<U32, NumberPtr, Hash> map;
  std::map<U32, int> expected;
  for (int step = 1; step < 20000; ++step) {
    U32 const key = random.below(40);
    U32 const dice = random.below(100);
    if (dice < 55) {
      map.put(key, made(expected[key] = step));
    } else if (dice < 98) {
      ASSERT_EQ(valueOf(map.del(key)), expected.contains(key) ? expected[key] : 0);
      expected.erase(key);
    } else if (dice < 99) {
      // Deletes the odd members on the way through.
      for (auto i = map.iterator(); i;)
        i.key() % 2 != 0 ? static_cast<void>(map.del(i)) : static_cast<void>(++i);
      std::erase_if(expected, [](auto const& member) { return member.first % 2 != 0; });
    } else if (random.below(5) == 0) {
      map.delAll();
      expected.clear();
    }
    ASSERT_EQ(map.size(), expected.size());
    for (U32 at = 0; at < 40; ++at)
      ASSERT_EQ(map.find(at) != nullptr ? valueOf(*map.find(at)) : 0,
                expected.contains(at) ? expected[at] : 0);
  }
  // Keys that differ in their upper half alone.
  std::set<U64> places;
  for (U64 n = 0; n < 256; ++n)
    places.insert((Kes::hashNumber(n << 16) ^ Kes::hashNumber(n << 16) >> 32) % 256);
  EXPECT_GT(places.size(), 100U);
}

// On a stack that a recursion over the elements would overrun many times over.
TEST(Containers, LongChainsAreDestroyedOnASmallStack) {
  pthread_attr_t smallStack;
  pthread_attr_init(&smallStack);
  pthread_attr_setstacksize(&smallStack, 512 * 1024);
  auto const run = [](void*) -> void* {
    Kes::LinkQueue<NumberPtr> queue;
    for (int i = 1; i <= 1'000'000; ++i) queue.enq(queue.placeFor(made(i)));
    for (int const turns : {0, 1, 2}) {  // all by nextChunk, every second one, all by prevChunk
      Vorn::Chunk::Ptr chunk = Vorn::Chunk::ChunkIs();
      for (int i = 0; i < 20'000; ++i) {
        Vorn::Chunk::Ptr const next = Vorn::Chunk::ChunkIs();
        i % 2 < turns ? next->prevChunkIs(chunk) : next->nextChunkIs(chunk);
        chunk = next;
      }
    }
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &smallStack, run, nullptr), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&smallStack);
}

}  // namespace
