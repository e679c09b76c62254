#pragma once

#include "HvTray.h"

#include <QIcon>
#include <QObject>
#include <QString>

#include <array>

class HvStatusNotifierItem;
class QMenu;
class QSystemTrayIcon;

namespace Hv::Tray {
// The shipped sizes of each icon, in the resources as ":/icons/<name>-<size>.png".
inline constexpr std::array<int, 5> ICON_SIZES = {16, 22, 24, 32, 48};
QString iconResource(Icon icon, int size);
} // namespace Hv::Tray

// The status item with its one-entry menu: our own StatusNotifierItem where the desktop has a
// StatusNotifierWatcher, otherwise the toolkit's XEmbed icon. Created on first use, never destroyed.
class HvTray : public QObject {
public:
    static HvTray* instance();

    // Shows the icon first, then the texts, and shows the item once it has an icon.
    void setPresentation(const Hv::Tray::Presentation& presentation);
    // The menu action "Collect logs into a ZIP file".
    void collectLogs();
    // A desktop notification from the item.
    void showMessage(const QString& title, const QString& text);

private:
    HvTray();
    // A click on the item that the host leaves to the application.
    void popUpMenu();

    QMenu* m_menu;
    HvStatusNotifierItem* m_item = nullptr;
    QSystemTrayIcon* m_statusBarItem = nullptr;
};
