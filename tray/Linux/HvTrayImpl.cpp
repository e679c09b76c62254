#include "HvTrayImpl.h"

#include "HvFileReveal.h"
#include "HvStatusNotifierItem.h"
#include "HvTrace.h"
#include "HvTray.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QSystemTrayIcon>

#include <mutex>

namespace {

QIcon loadIcon(Hv::Tray::Icon icon)
{
    QIcon result;
    for (int size : Hv::Tray::ICON_SIZES)
        result.addFile(Hv::Tray::iconResource(icon, size), QSize(size, size));
    return result;
}

// Loaded on first use, once the application object exists, and kept for the whole process.
const QIcon& trayIcon(Hv::Tray::Icon icon)
{
    static const QIcon* const WAITING_ICON = new QIcon(loadIcon(Hv::Tray::Icon::Waiting));
    static const QIcon* const ERROR_ICON = new QIcon(loadIcon(Hv::Tray::Icon::Error));
    static const QIcon* const CONNECTED_ICON = new QIcon(loadIcon(Hv::Tray::Icon::Connected));
    switch (icon) {
    case Hv::Tray::Icon::Error:
        return *ERROR_ICON;
    case Hv::Tray::Icon::Connected:
        return *CONNECTED_ICON;
    case Hv::Tray::Icon::Waiting:
        break;
    }
    return *WAITING_ICON;
}

} // namespace

HvTray::HvTray()
    : m_menu(new QMenu())
    , m_collectLogsAction(nullptr)
    , m_reportRunner(Hv::Tray::ReportRunner::create([](Hv::Tray::ReportRunner::Task task) {
        // From the worker: runs on this thread once the event loop gets to it.
        QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection);
    }))
{
    HV_TRACE();
    m_collectLogsAction = m_menu->addAction(QString::fromUtf8(Hv::Tray::COLLECT_LOGS_TITLE));
    QObject::connect(m_collectLogsAction, &QAction::triggered, this, [this] { collectLogs(); });
    if (HvStatusNotifierItem::watcherAvailable()) {
        m_item = new HvStatusNotifierItem(m_menu, [this] { popUpMenu(); }, this);
        return;
    }
    // The XEmbed tray, where there is one; with none the item is invisible but the application
    // still follows the service.
    m_statusBarItem = new QSystemTrayIcon(this);
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        HV_LOG_WARN("No system tray is available; the status item will not be shown");
    m_statusBarItem->setContextMenu(m_menu);
    // The item has nothing but its menu, so a left click opens it too, as a click does on macOS;
    // the right click is the XEmbed tray's own.
    QObject::connect(m_statusBarItem, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            popUpMenu();
    });
}

HvTray* HvTray::instance()
{
    static HvTray* trayInstance = nullptr;
    static std::once_flag onceToken;
    HV_TRACE_FREE(trayInstance);
    std::call_once(onceToken, [] { trayInstance = new HvTray(); });
    return trayInstance;
}

void HvTray::setPresentation(const Hv::Tray::Presentation& presentation)
{
    HV_TRACE(Hv::Tray::iconName(presentation.icon), presentation.status);
    if (m_item != nullptr) {
        m_item->setPresentation(presentation);
        return;
    }
    m_statusBarItem->setIcon(trayIcon(presentation.icon));
    m_statusBarItem->setToolTip(QString::fromStdString(presentation.toolTip()));
    if (!m_statusBarItem->isVisible())
        m_statusBarItem->show();
}

void HvTray::showMessage(const QString& title, const QString& text)
{
    HV_TRACE(title.toStdString(), text.toStdString());
    if (m_item != nullptr)
        m_item->showMessage(title, text);
    else
        m_statusBarItem->showMessage(title, text);
}

void HvTray::popUpMenu()
{
    HV_TRACE();
    // Under Wayland a menu of our own would be a top-level window placed wherever the compositor
    // likes; hosts there draw the item's menu themselves.
    if (QGuiApplication::platformName().startsWith(QStringLiteral("wayland"))) {
        HV_LOG_DEBUG("A click on the item under Wayland; the host shows the menu");
        return;
    }
    m_menu->popup(QCursor::pos());
}

void HvTray::collectLogs()
{
    HV_TRACE();
    // The runner refuses a second report; the disabled entry tells the user why.
    if (!m_reportRunner->start([this](const boost::filesystem::path& report) { reportDone(report); }))
        return;
    m_collectLogsAction->setEnabled(false);
    m_collectLogsAction->setText(QString::fromUtf8(Hv::Tray::COLLECTING_LOGS_TITLE));
}

void HvTray::reportDone(const boost::filesystem::path& report)
{
    HV_TRACE(report);
    m_collectLogsAction->setText(QString::fromUtf8(Hv::Tray::COLLECT_LOGS_TITLE));
    m_collectLogsAction->setEnabled(true);
    if (report.empty()) {
        QMessageBox alert(QMessageBox::Information, QStringLiteral("Halvo Softphone"),
                          QStringLiteral("Error while preparing logs"), QMessageBox::Ok);
        alert.setInformativeText(QStringLiteral("Unable to prepare Halvo softphone logs"));
        alert.exec();
        return;
    }
    Hv::Tray::revealFile(report);
}

void HvTray::finishReport()
{
    HV_TRACE();
    m_reportRunner->finish();
}

namespace Hv::Tray {

QString iconResource(Icon icon, int size)
{
    return QStringLiteral(":/icons/%1-%2.png").arg(QString::fromLatin1(iconName(icon))).arg(size);
}

} // namespace Hv::Tray
