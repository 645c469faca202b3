// Text from outside (file names, sheet titles) as the terminal may show it:
// control characters become \xNN, so no escape sequence reaches it. Any thread.
#pragma once
#include <string>

std::string escapeControls(const std::string& text);
