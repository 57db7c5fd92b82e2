// SPDX-License-Identifier: Apache-2.0
// Records of all sizes and kinds get their memory and give it back.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <iterator>
#include <random>

#include "Kes/SlabPool.h"
#include "tests/support.h"

namespace {

#ifdef VORN_SANITIZED
constexpr bool bypass = true;
#else
constexpr bool bypass = false;
#endif

long residentPages() {
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident;
}

long mappings() {
  std::ifstream maps("/proc/self/maps");
  return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

// A platform's record of a size and an alignment, filled with a mark of its own.
template <std::size_t size, std::size_t alignment = 1>
struct Sized final : Vorn::Entry {
  explicit Sized(unsigned mark) : Entry(mark, Vorn::Microseconds(mark)) {
    bytes.fill(static_cast<char>(mark));
  }
  ~Sized() override {
    for (char const byte : bytes) EXPECT_EQ(byte, static_cast<char>(qLen()));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(this) % alignof(Sized), 0U);
  }
  alignas(alignment) std::array<char, size> bytes;
};

static_assert(sizeof(Sized<216>) == Kes::maxSlabSize);

Vorn::Entry::Ptr made(unsigned kind, unsigned mark) {
  switch (kind % 6) {
    case 0: return Kes::makePtr<Vorn::Entry>(mark, Vorn::Microseconds(mark));
    case 1: return Kes::makePtr<Sized<1>>(mark);
    case 2: return Kes::makePtr<Sized<216>>(mark);  // just what the pool takes
    case 3: return Kes::makePtr<Sized<100, 16>>(mark);
    case 4: return Kes::makePtr<Sized<1000>>(mark);  // more than the pool takes
    default: return Kes::makePtr<Sized<64, 128>>(mark);
  }
}

TEST(SlabPool, Records_ofAllKindsKeepTheirBytes) {
  std::mt19937 random(7);
  std::vector<std::pair<Vorn::Entry::Ptr, unsigned>> records(20'000);
  for (unsigned mark = 0; mark < 200'000; ++mark) {
    auto& [slot, marked] = records[random() % records.size()];
    ASSERT_TRUE(!slot || (slot->qLen() == marked && slot->timestamp().value() == marked));
    slot = random() % 3 == 0 ? nullptr : made(static_cast<unsigned>(random()), mark);
    marked = mark;
    if (mark % 1000 == 0) Kes::slabTrim();
  }
}

struct Refused final : Vorn::Entry {
  Refused() : Entry(1, Vorn::Microseconds(1)) { throw 1; }
};

TEST(SlabPool, Memory_comesBackWhateverWayItWent) {
  alignas(Vorn::Entry) std::byte place[sizeof(Vorn::Entry)];
  Vorn::Entry::Ptr held(new (std::nothrow) Vorn::Entry(1, Vorn::Microseconds(1)));
  Vorn::Entry::Ptr const aligned(new (std::nothrow) Sized<64, 128>(1));
  EXPECT_NE(static_cast<void*>(new (place) Vorn::Entry(2, Vorn::Microseconds(2))), held.get());
  long const before = residentPages();
  for (int i = 0; i < 100'000; ++i) {
    EXPECT_THROW(Kes::makePtr<Refused>(), int);
    EXPECT_THROW(static_cast<void>(new (std::nothrow) Refused), int);
  }
  if (bypass) return;
  constexpr long pages = 1024;  // 4 MiB
  EXPECT_LT(residentPages(), before + pages / 8);
  std::vector<Vorn::Entry::Ptr> records;
  records.reserve(1'600'000);
  long const mapped = mappings();
  while (records.size() < records.capacity()) records.push_back(made(0, 1));
  EXPECT_GT(residentPages(), before + 12 * pages);
  EXPECT_LT(mappings(), mapped + 10);  // some 1,000 slabs
  records = std::vector<Vorn::Entry::Ptr>();
  EXPECT_LT(residentPages(), before + pages);
}

// Where the system gives no slab the general allocator is asked, and what came from it is told apart.
TEST(SlabPool, Slabs_mayBeRefused) {
  if (bypass) return;
  EXPECT_EXIT(
      {
        std::vector<Vorn::Entry::Ptr> records;
        records.reserve(2'000'000);
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlimit limit{};
        getrlimit(RLIMIT_AS, &limit);
        limit.rlim_cur = static_cast<rlim_t>(pages) * 4096 + (40U << 20);
        setrlimit(RLIMIT_AS, &limit);
        EXPECT_THROW(while (true) records.push_back(made(0, 7)), std::bad_alloc);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_AS, &limit);
        std::size_t const count = records.size();
        for (int turn = 0; turn < 2; ++turn) {
          for (Vorn::Entry::Ptr const& record : records) EXPECT_EQ(record->qLen(), 7U);
          records.clear();
          Kes::slabTrim();
          while (records.size() < count) records.push_back(made(0, 7));
        }
        std::_Exit(testing::Test::HasFailure() || count < 500'000 ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

// What was made before the switch is freed behind it, and the other way round.
TEST(SlabPool, Threads_shareItOnceSwitched) {
  std::vector<Vorn::Entry::Ptr> handed(50'000);
  for (unsigned i = 0; i < handed.size(); ++i) handed[i] = made(i % 4, i);
  ::Test::inTwoThreads([&](unsigned which) {
    for (unsigned i = which; i < handed.size(); i += 2)
      for (unsigned k = 0; k < 4; ++k) handed[i] = made(k, i);
  });
  for (int turn = 0; turn < 2; ++turn) {
    for (std::size_t i = 0; i < handed.size(); ++i) ASSERT_EQ(handed[i]->qLen(), i);
    handed.clear();
    for (unsigned i = 0; i < 10'000; ++i) handed.push_back(made(i % 4, i));
  }
}

// A child is forked at any moment of another thread's work; it makes and frees records, and ends.
TEST(SlabPool, Forks_whileAnotherThreadUsesIt) {
  std::vector<Vorn::Entry::Ptr> before(1'000'000);
  for (Vorn::Entry::Ptr& record : before) record = made(0, 1);
  Kes::threadSafePtrsIs(true);
  // A part of the records for each fork, whichever of the two is slower.
  constexpr std::size_t forks = 100;
  std::atomic<std::size_t> part = 1;
  std::thread other([&] {
    for (std::size_t freed = 1; freed < before.size(); ++freed) {
      before[freed] = nullptr, made(0, 2);
      while (freed / (before.size() / forks) >= part) std::this_thread::yield();
    }
  });
  int stuck = 0;
  for (; part <= forks; ++part) {
    pid_t const child = fork();
    if (child == 0) {
      alarm(10);
      before[0] = made(0, 3);
      Kes::slabTrim();
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    stuck += status != 0;
  }
  other.join();
  EXPECT_EQ(stuck, 0);
  before.clear();
  Kes::threadSafePtrsIs(false);
}

}  // namespace
