#pragma once

#include <string>
#include <string_view>

namespace vistrelle::platform {

/// `text` with every control character (C0, DEL, C1) and every stray byte written as an escape ("\n", "\t", "\x1b",
/// "\u0085"), so that no name can move the cursor, colour or forge a line on a terminal. The line ends of a printed
/// list or dictionary, which begins with a bracket alone on its line and indents what it holds, stay.
std::string visibleText(std::string_view text);

}  // namespace vistrelle::platform
