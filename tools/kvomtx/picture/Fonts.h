#pragma once

#include <string>

/// Makes the system's fonts known to pango, once in a process. What fontconfig wants to keep of them for the next time goes into `folder`
/// where it may write nowhere else: a user without a home reads none of its complaints, and is not slowed down by more than one search.
void FindFonts(std::string const& folder);
