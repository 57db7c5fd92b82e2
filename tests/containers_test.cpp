// The framework's containers, each against a plain model under random operations. A failure names its seed.

#include <gtest/gtest.h>
#include <pthread.h>

#include <deque>
#include <map>
#include <random>

#include "Kes/ArrayQueue.h"
#include "Kes/HashMap.h"
#include "Kes/LinkQueue.h"
#include "Kes/RingQueue.h"
#include "Vorn/PortData.h"

namespace {

using Kes::U32;
using Kes::U64;

// What the containers hold here: numbers, 0 being null.
struct Number final : Kes::PtrInterface {
  explicit Number(int number) : value(number) {}
  int const value;
};
using NumberPtr = Kes::Ptr<Number>;

NumberPtr made(int number) { return Kes::makePtr<Number>(number); }
int valueOf(NumberPtr const& number) { return number ? number->value : 0; }

// The text of the range exception that an operation raises; nothing when it raises none.
template <class Operation>
std::string raised(Operation operation) {
  try {
    operation();
  } catch (Kes::RangeException const& exception) {
    return exception.what();
  }
  return "";
}

struct Random {
  explicit Random(unsigned seed) : engine(seed) {}
  U32 below(U32 limit) { return static_cast<U32>(engine() % limit); }
  std::mt19937 engine;
};

// Removes the holes that an end reaches along; returns how many elements and holes went.
U32 trim(std::deque<int>& numbers, bool atHead) {
  U32 gone = 0;
  for (; !numbers.empty() && (atHead ? numbers.front() : numbers.back()) == 0; ++gone)
    atHead ? numbers.pop_front() : numbers.pop_back();
  return gone;
}

// Takes the k-th element out as the bounded queue and the ring queue do; returns the number that was there.
// `atHead` and `atTail` become how many positions that end gave up.
int take(std::deque<int>& numbers, std::size_t k, U32& atHead, U32& atTail) {
  int const taken = numbers[k];
  bool const last = k + 1 == numbers.size();
  numbers[k] = 0;
  atHead = k == 0 ? trim(numbers, true) : 0;
  atTail = k != 0 && last ? trim(numbers, false) : 0;
  return taken;
}

void arrayQueueAgainstModel(Random random) {
  constexpr U32 size = 6;
  Kes::ArrayQueue<NumberPtr, size> queue;
  std::deque<int> numbers;  // from the head on, holes as 0
  U32 head = 0;
  U32 changes = 0;
  U32 atHead = 0;
  U32 atTail = 0;
  for (int step = 1; step < 400; ++step) {
    U32 const slot = random.below(size);
    U32 const k = (slot + size - head) % size;
    U32 const count = static_cast<U32>(numbers.size());
    switch (random.below(9)) {
      case 0:
      case 1:
        if (count == size) {
          ASSERT_EQ(raised([&] { queue.enq(made(step)); }), "ArrayQueueStack full");
        } else {
          queue.enq(made(step));
          numbers.push_back(step);
          ++changes;
        }
        break;
      case 2: {
        int const expected = numbers.empty() ? 0 : take(numbers, 0, atHead, atTail);
        ASSERT_EQ(valueOf(queue.deq()), expected);
        if (count != 0) changes += atHead, head = (head + atHead) % size;
        break;
      }
      case 3:
      case 4: {
        bool const inside = k < count;
        int const expected = inside ? take(numbers, k, atHead, atTail) : 0;
        ASSERT_EQ(valueOf(queue.del(slot)), expected);
        if (!inside) break;
        head = (head + atHead) % size;
        changes += atHead + atTail != 0 ? atHead + atTail : expected != 0;
        break;
      }
      case 5:
      case 6: {
        bool const prepends = count != 0 && count != size && slot == (head + size - 1) % size && k != count;
        bool const fits = k < count || count == 0 || k == count || prepends;
        ASSERT_EQ(raised([&] { queue.put(slot, made(step)); }), fits ? "" : "outside of queue");
        if (!fits) break;
        ++changes;
        if (k < count) {
          numbers[k] = step;
        } else if (prepends) {
          numbers.push_front(step);
          head = slot;
        } else {
          if (count == 0) head = slot;
          numbers.push_back(step);
        }
        break;
      }
      case 7: {
        if (random.below(4) != 0) break;
        U32 const newCount = random.below(size + 2);
        std::deque<int> kept(newCount);
        for (U32 i = 0; i < newCount; ++i) {
          U32 const from = (slot + i + size - head) % size;
          kept[i] = from < count ? numbers[from] : 0;
        }
        ASSERT_EQ(raised([&] { queue.stateIs(slot, newCount); }), newCount > size ? "bad size" : "");
        if (newCount > size) queue.stateIs(head, count);  // the head is set by then
        if (newCount > size) break;
        head = slot;
        numbers = kept;
        break;
      }
      default:
        if (random.below(10) != 0) break;
        queue.delAll();
        changes += count;
        head = (head + count) % size;
        numbers.clear();
    }
    ASSERT_EQ(queue.head(), head);
    ASSERT_EQ(queue.count(), numbers.size());
    ASSERT_EQ(queue.modificationCount(), changes);
    for (U32 i = 0; i < size; ++i)
      ASSERT_EQ(valueOf(queue.slot((head + i) % size)), i < numbers.size() ? numbers[i] : 0) << step;
  }
}

TEST(Containers, ArrayQueue) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_NO_FATAL_FAILURE(arrayQueueAgainstModel(Random(seed)));
  }
}

// Positions run over 2^32.
void ringQueueAgainstModel(Random random) {
  Kes::RingQueue<NumberPtr> queue;
  std::deque<int> numbers;
  U32 head = 0U - random.below(200);
  U32 changes = 0;
  queue.stateIs(head, 0);
  for (int step = 1; step < 600; ++step) {
    U32 const count = static_cast<U32>(numbers.size());
    U32 const k = random.below(count + 3) - 1;  // one position before the head, two behind the tail
    U32 atHead = 0;
    U32 atTail = 0;
    switch (random.below(step % 100 < 50 ? 8 : 6)) {
      case 0:
      case 1: {
        int const expected = count == 0 ? 0 : take(numbers, 0, atHead, atTail);
        ASSERT_EQ(valueOf(queue.deq()), expected);
        head += atHead;
        changes += count != 0;
        break;
      }
      case 2:
      case 3: {
        int const expected = k < count ? take(numbers, k, atHead, atTail) : 0;
        ASSERT_EQ(valueOf(queue.del(head + k)), expected);
        head += atHead;
        changes += k < count;
        break;
      }
      case 4:
        if (count == 0) break;
        queue.put(head + k, made(step));
        ++changes;
        if (k == ~0U) {
          numbers.push_front(step);
          --head;
        } else {
          if (k >= count) numbers.resize(k + 1);
          numbers[k] = step;
        }
        break;
      case 5:
        if (random.below(20) == 0) queue.stateIs(head = 0U - random.below(50), random.below(64));
        break;
      default:
        queue.enq(made(step));
        numbers.push_back(step);
        ++changes;
    }
    ASSERT_EQ(queue.count(), numbers.size());
    ASSERT_EQ(queue.headPosition(), head);
    ASSERT_EQ(queue.modificationCount(), changes);
    ASSERT_TRUE(std::has_single_bit(queue.capacity()) && queue.capacity() >= numbers.size());
    auto i = queue.iterator();
    for (U32 at = 0; at < numbers.size(); ++at) {
      ASSERT_EQ(valueOf(queue.at(head + at)), numbers[at]);
      if (numbers[at] == 0) continue;
      ASSERT_TRUE(i && i.key() == head + at && valueOf(*i) == numbers[at]);
      ++i;
    }
    ASSERT_FALSE(i);
  }
}

TEST(Containers, RingQueue) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_NO_FATAL_FAILURE(ringQueueAgainstModel(Random(seed)));
  }
  Kes::RingQueue<NumberPtr> queue;
  queue.enq(made(1));
  EXPECT_NE(raised([&] { queue.put(1U << 25, made(2)); }), "");
  EXPECT_NE(raised([&] { queue.stateIs(0, (1U << 24) + 1); }), "");
  EXPECT_EQ(queue.count(), 1U);
  for (int i = 2; i <= 9; ++i) queue.enq(made(i));
  EXPECT_EQ(queue.capacity(), 16U);  // 8, and doubled by the ninth
  queue.stateIs(5, 20);
  EXPECT_EQ(queue.capacity(), 32U);
  EXPECT_EQ(valueOf(queue.at(13)), 9);
}

// Keys stand on both sides of 2^32.
void linkQueueAgainstModel(Random random) {
  Kes::LinkQueue<NumberPtr> queue;
  std::vector<std::pair<U32, int>> nodes;
  U32 headKey = 0;
  U32 nextKey = 0;
  U32 changes = 0;
  auto const raiseNextKey = [&](U32 key) { nextKey = std::max(nextKey, key + 1); };
  auto const insert = [&](std::size_t at, U32 key, int number) {
    nodes.insert(nodes.begin() + static_cast<std::ptrdiff_t>(at), {key, number});
    if (at == 0) headKey = key;
    if (at + 1 == nodes.size()) raiseNextKey(key);
    ++changes;
  };
  for (int step = 1; step < 300; ++step) {
    U32 const key = random.below(12) - 6;
    std::size_t known = 0;
    while (known < nodes.size() && nodes[known].first != key) ++known;
    bool const after = !nodes.empty() && nodes.back().first >= nextKey;
    U32 const chosen = after ? nodes.back().first + 1 : nextKey;
    bool const full = !nodes.empty() && chosen + 1 == headKey;
    switch (random.below(8)) {
      case 0:
      case 1:
      case 2: {
        bool const enqueues = random.below(2) == 0 || key == chosen;
        if (!enqueues && known < nodes.size()) {
          ASSERT_TRUE(queue.replace(key, made(step)));
          nodes[known].second = step;
        } else if (!enqueues) {
          // Explicit keys are put in numeric order: that is for queues that have not wrapped.
          if (!nodes.empty() && (headKey > nodes.back().first || (headKey == 0 && key == ~0U))) break;
          ASSERT_FALSE(queue.replace(key, made(step)));
          queue.insert(Kes::makePtr<Kes::LinkQueue<NumberPtr>::Node>(made(step)), key);
          std::size_t at = 0;
          while (at < nodes.size() && nodes[at].first < key) ++at;
          insert(at, key, step);
        } else if (full) {
          ASSERT_EQ(raised([&] { queue.enq(made(step)); }), "linkqueue index space full");
        } else {
          ASSERT_EQ(queue.enq(made(step))->key(), chosen);
          nextKey = chosen;
          insert(nodes.size(), chosen, step);
        }
        break;
      }
      case 3:
      case 4:
      case 5: {
        if (random.below(2) == 0) known = 0;
        bool const found = known < nodes.size();
        NumberPtr const removed = known == 0 ? queue.deq() : queue.del(key);
        ASSERT_EQ(valueOf(removed), found ? nodes[known].second : 0);
        if (!found) break;
        nodes.erase(nodes.begin() + static_cast<std::ptrdiff_t>(known));
        ++changes;
        if (nodes.empty()) headKey = nextKey;
        if (nodes.empty() || known != 0) break;
        headKey = nodes.front().first;
        raiseNextKey(nodes.back().first);
        break;
      }
      case 6:
        if (!nodes.empty()) break;
        headKey = key - random.below(2);
        nextKey = key;
        queue.keysIs(headKey, nextKey);
        break;
      default:
        if (random.below(20) != 0) break;
        queue.delAll();
        if (nodes.empty()) break;
        changes += static_cast<U32>(nodes.size());
        raiseNextKey(nodes.back().first);
        nodes.clear();
        headKey = nextKey;
    }
    ASSERT_EQ(queue.count(), nodes.size());
    ASSERT_EQ(queue.headKey(), headKey) << step;
    ASSERT_EQ(queue.nextKey(), nextKey) << step;
    ASSERT_EQ(queue.modificationCount(), changes);
    auto i = queue.iterator();
    for (std::size_t at = 0; at < nodes.size(); ++at, ++i) {
      ASSERT_TRUE(i && i.key() == nodes[at].first && valueOf(*i) == nodes[at].second) << step;
      ASSERT_EQ(valueOf(i.older()), at == 0 ? 0 : nodes[at - 1].second);
      ASSERT_EQ(valueOf(i.newer()), at + 1 == nodes.size() ? 0 : nodes[at + 1].second);
      ASSERT_EQ(valueOf(queue.value(nodes[at].first)), nodes[at].second);
    }
    ASSERT_FALSE(i);
    ASSERT_EQ(queue.tail() == nullptr, nodes.empty());
    ASSERT_TRUE(nodes.empty() || queue.tail()->key() == nodes.back().first);
  }
}

TEST(Containers, LinkQueue) {
  for (unsigned seed = 1; seed <= 400; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_NO_FATAL_FAILURE(linkQueueAgainstModel(Random(seed)));
  }
}

// Few hashes, so that runs of equal ones form and are closed again.
TEST(Containers, HashMap) {
  struct Hash {
    U64 operator()(U32 key) const { return key % 5 * 0x700000007ULL; }
  };
  Random random(7);
  Kes::HashMap<U32, NumberPtr, Hash> map;
  std::map<U32, int> expected;
  for (int step = 1; step < 20000; ++step) {
    U32 const key = random.below(40);
    if (random.below(2) == 0) {
      ASSERT_EQ(valueOf(map.put(key, made(step))), expected[key] = step);
    } else if (random.below(4) != 0) {
      ASSERT_EQ(valueOf(map.del(key)), expected.contains(key) ? expected[key] : 0);
      expected.erase(key);
    } else if (random.below(60) == 0) {
      map.delAll();
      expected.clear();
    } else {
      // Deletes the odd members on the way through.
      for (auto i = map.iterator(); i;)
        if (U32 const at = i.key(); at % 2 != 0) {
          ASSERT_EQ(valueOf(map.del(i)), expected[at]);
          expected.erase(at);
        } else {
          ++i;
        }
    }
    ASSERT_EQ(map.size(), expected.size());
    for (U32 at = 0; at < 40; ++at)
      ASSERT_EQ(map.find(at) != nullptr ? valueOf(*map.find(at)) : 0,
                expected.contains(at) ? expected[at] : 0);
  }
}

// On a stack that a recursion over the elements would overrun many times over.
TEST(Containers, LongChainsAreDestroyedOnASmallStack) {
  pthread_attr_t smallStack;
  pthread_attr_init(&smallStack);
  pthread_attr_setstacksize(&smallStack, 512 * 1024);
  auto const run = [](void*) -> void* {
    Kes::LinkQueue<NumberPtr> queue;
    for (int i = 1; i <= 1'000'000; ++i) queue.enq(made(i));
    for (bool const backwards : {false, true}) {
      Vorn::Chunk::Ptr chunk = Vorn::Chunk::ChunkIs();
      for (int i = 0; i < 20'000; ++i) {
        Vorn::Chunk::Ptr const next = Vorn::Chunk::ChunkIs();
        backwards ? next->prevChunkIs(chunk) : next->nextChunkIs(chunk);
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
