#pragma once

// The item as the desktop's StatusNotifierItem hosts read it over the session bus, and its menu as
// they draw it. Both are plain D-Bus objects answered here, so that every property, error reply and
// signal is ours, not the toolkit's guess.

#include "HvTray.h"

#include <QDBusVirtualObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <array>
#include <functional>
#include <optional>

class QAction;
class QDBusConnection;
class QDBusMessage;
class QMenu;

// com.canonical.dbusmenu at /MenuBar: the entries of a QMenu (label, enabled, visible), following
// every change of their QActions; a host's "clicked" triggers the action.
class HvDBusMenu : public QDBusVirtualObject {
public:
    static const char* const PATH;

    HvDBusMenu(QMenu* menu, QObject* parent);

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override;

private:
    // The entry of an id: 0 is the root, n the menu's n-th action; nullptr (root) or the action, or
    // nothing for an id that does not exist.
    std::optional<QAction*> entry(int id) const;
    QVariantMap properties(QAction* action, const QStringList& names) const;
    void actionChanged(QAction* action);
    void runEvent(QAction* action, const QString& eventId);

    QMenu* m_menu;
    uint m_revision = 1;
};

// org.kde.StatusNotifierItem at /StatusNotifierItem, published under a name of its own and
// registered with the StatusNotifierWatcher, again whenever the watcher's owner changes (a panel
// restart).
class HvStatusNotifierItem : public QDBusVirtualObject {
public:
    static const char* const PATH;

    // Whether a StatusNotifierWatcher owns its name on the session bus.
    static bool watcherAvailable();

    // `activate`: what a host that still sends Activate, SecondaryActivate or ContextMenu gets.
    HvStatusNotifierItem(QMenu* menu, std::function<void()> activate, QObject* parent);

    // Publishes a presentation; hosts hear of what changed.
    void setPresentation(const Hv::Tray::Presentation& presentation);
    // A desktop notification, with the item's icon.
    void showMessage(const QString& title, const QString& text) const;

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override;

private:
    void registerWithWatcher();
    QVariant itemProperty(const QString& name) const;
    QString iconName() const;
    // The icon's pixmaps as hosts take them (a(iiay)), loaded on first use.
    const QVariant& pixmaps(Hv::Tray::Icon icon) const;

    std::function<void()> m_activate;
    QString m_service;
    Hv::Tray::Presentation m_presentation{Hv::Tray::Icon::Waiting, "", "", false};
    mutable std::array<QVariant, 3> m_pixmaps;
};
