#pragma once

#include "HvReportRunner.h"
#include "HvTray.h"

#include <QIcon>
#include <QObject>
#include <QString>

#include <array>

class HvStatusNotifierItem;
class QAction;
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
    // The menu action "Collect logs into a ZIP file": starts the report on its worker thread,
    // the entry disabled until the result is back.
    void collectLogs();
    // At quit: waits for a report that is being built, at most ReportRunner::QUIT_WAIT.
    void finishReport();
    // A desktop notification from the item.
    void showMessage(const QString& title, const QString& text);

private:
    HvTray();
    // A click on the item that the host leaves to the application.
    void popUpMenu();
    // Back on this thread: the entry enabled again, then the archive shown or the alert.
    void reportDone(const boost::filesystem::path& report);

    QMenu* m_menu;
    QAction* m_collectLogsAction;
    Hv::Tray::ReportRunner::Shared m_reportRunner;
    HvStatusNotifierItem* m_item = nullptr;
    QSystemTrayIcon* m_statusBarItem = nullptr;
};
