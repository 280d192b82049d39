// What the runner and the language library that it writes agree on.
#pragma once

namespace runner {

constexpr char kLanguageMark[] = "language-texts-1";

}  // namespace runner
