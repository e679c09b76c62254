#pragma once

#include "HvReportRunner.h"

#include <QIcon>
#include <QObject>
#include <QString>

class QAction;
class QMenu;
class QSystemTrayIcon;

// The status item: a system tray icon with a one-entry menu. Created on first use, never destroyed.
class HvTray : public QObject {
public:
    static HvTray* instance();

    // Sets the icon first, then the tool tip, and shows the item once it has an icon.
    void setIcon(const QIcon& image, const QString& status);
    // The menu action "Collect logs into a ZIP file": starts the report on its worker thread,
    // the entry disabled until the result is back.
    void collectLogs();
    // At quit: waits for a report that is being built, at most ReportRunner::QUIT_WAIT.
    void finishReport();

    QSystemTrayIcon* statusBarItem() const { return m_statusBarItem; }

private:
    HvTray();
    // Back on this thread: the entry enabled again, then the archive shown or the alert.
    void reportDone(const boost::filesystem::path& report);

    QSystemTrayIcon* m_statusBarItem;
    QMenu* m_menu;
    QAction* m_collectLogsAction;
    Hv::Tray::ReportRunner::Shared m_reportRunner;
};
