// A message box hook for tests: records what would have been shown and answers OK.
#pragma once

#include <string>

#include "platform/MessageBox.h"

namespace testing_support {

struct Shown {
  int count = 0;
  std::string text;
  unsigned style = 99;  // no MB_ style has this value
};

// Install with the Shown record as the hook's context.
inline int RecordBox(const char* text, const char*, unsigned style, void* context) {
  auto* shown = static_cast<Shown*>(context);
  ++shown->count;
  shown->text = text;
  shown->style = style;
  return platform::kIdOk;
}

}  // namespace testing_support
