// The mark at the end of a case's language library, for the runner, which writes it, and the library, which reads it.
#pragma once

namespace runner {

constexpr char kLanguageMark[] = "language-texts-1";

}  // namespace runner
