// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "agent/base/Printable.h"
#include "agent/byname/ObjectOutput.h"
#include "agent/byname/ObjectPath.h"
#include "agent/byname/ObjectTarget.h"

namespace Agent {

namespace {

class TextOutput final : public ObjectOutput {
 public:
  explicit TextOutput(std::FILE* out) : out_(out) {}

  void begin(Group group, std::string_view title, std::size_t width) override {
    if (group != Group::summary) line(title);
    levels_.push_back({group, width});
  }
  void end(Group group) override {
    levels_.pop_back();
    if (group == Group::summary) std::fputc('\n', out_);
  }
  void name(std::string_view name) override;

  void value(Kes::GenericIf const& value) override {
    std::string text = printable(value.strRep().view());
    if (text.empty() && !levels_.empty()) text = "\"\"";
    if (inSummary())
      std::fputs(text.c_str(), out_);
    else
      line(text);
  }
  void reference(std::string_view description) override { line(description); }
  void null() override { line("null"); }
  void members(Kes::GenericIf& holder, Kes::Attribute const& collection) override {
    line(membersOf(holder, collection));
  }

 private:
  struct Level {
    Group group;
    std::size_t width;
    bool empty = true;
  };

  bool inSummary() const { return !levels_.empty() && levels_.back().group == Group::summary; }
  void line(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), out_);
    std::fputc('\n', out_);
  }

  std::FILE* const out_;
  std::vector<Level> levels_;
};

void TextOutput::name(std::string_view name) {
  Level& level = levels_.back();
  std::string const shown = level.group == Group::collection ? keyText(name) : std::string(name);
  if (level.group == Group::summary) {
    std::fprintf(out_, "%s%s=", level.empty ? "" : " ", shown.c_str());
  } else {
    int const indent = static_cast<int>(2 * levels_.size());
    std::fprintf(out_, "%*s%-*s  ", indent, "", static_cast<int>(level.width), shown.c_str());
  }
  level.empty = false;
}

}  // namespace

std::unique_ptr<ObjectOutput> textOutput(std::FILE* out) { return std::make_unique<TextOutput>(out); }

}  // namespace Agent
