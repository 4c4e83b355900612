#pragma once

#include <initializer_list>

namespace agent {

/// Makes a descriptor that is readable when one of these signals has arrived, which are blocked.
int openSignals(std::initializer_list<int> wanted);

/// The same, for one signal only, through a descriptor that there is already.
void narrowSignals(int descriptor, int wanted);

} // namespace agent
