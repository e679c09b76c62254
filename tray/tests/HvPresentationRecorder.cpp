#include "HvPresentationRecorder.h"

namespace Hv::Test {

std::vector<ShownPresentation>& shownPresentations()
{
    static std::vector<ShownPresentation> shown;
    return shown;
}

} // namespace Hv::Test

// The tests stand in for the toolkit shell: the item only records what it was given.
namespace Hv::Tray {

void showPresentation(Icon icon, const std::string& toolTip)
{
    Test::shownPresentations().push_back({icon, toolTip});
}

} // namespace Hv::Tray
