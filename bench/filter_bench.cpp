// Which interfaces a report shows; "each" is the time of one selection.

#include "bench/FilterCases.h"
#include "bench/Suite.h"

namespace Bench {

namespace {

template <bool compilingEach>
class SelectCase {
 public:
  SelectCase(Patterns const& patterns, U32 ports) : case_(patterns, ports) {}
  double run(U64 count) {
    return secondsOf([&] {
      for (U64 i = 0; i < count; ++i)
        benchmark::DoNotOptimize(compilingEach ? case_.selectCompilingEach() : case_.select());
    });
  }
  void check() const { case_.check(); }

 private:
  FilterCase case_;
};

}  // namespace

void addCases(bool smoke) {
  for (U32 const ports : smoke ? std::vector<U32>{128} : std::vector<U32>{128, 512, 4096})
    for (Patterns const* patterns : {&bracketPatterns, &literalNames, &prefixPatterns}) {
      addCase(sized(std::string("report/") + patterns->name, ports), smoke, smoke ? 1 : 20,
              [=] { return std::make_unique<SelectCase<false>>(*patterns, ports); });
      addCase(sized(std::string("compiling at every test/") + patterns->name, ports), smoke, 1,
              [=] { return std::make_unique<SelectCase<true>>(*patterns, ports); });
    }
}

}  // namespace Bench
