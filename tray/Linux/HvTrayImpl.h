#pragma once

#include <QIcon>
#include <QObject>
#include <QString>

class QMenu;
class QSystemTrayIcon;

// The status item: a system tray icon with a one-entry menu. Created on first use, never destroyed.
class HvTray : public QObject {
public:
    static HvTray* instance();

    // Sets the icon first, then the tool tip, and shows the item once it has an icon.
    void setIcon(const QIcon& image, const QString& status);
    // The menu action "Collect logs into a ZIP file".
    void collectLogs();

    QSystemTrayIcon* statusBarItem() const { return m_statusBarItem; }

private:
    HvTray();

    QSystemTrayIcon* m_statusBarItem;
    QMenu* m_menu;
};
