#pragma once

#include "HvTray.h"

#include <string>
#include <vector>

namespace Hv::Test {

// What the tests' display of the status item was asked to show, in order.
struct ShownPresentation {
    Tray::Icon icon;
    std::string toolTip;
};

std::vector<ShownPresentation>& shownPresentations();

} // namespace Hv::Test
