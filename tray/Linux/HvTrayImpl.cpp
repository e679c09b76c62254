#include "HvTrayImpl.h"

#include "HvFileReveal.h"
#include "HvIssueCollector.h"
#include "HvTrace.h"
#include "HvTray.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QMenu>
#include <QMessageBox>
#include <QSystemTrayIcon>

#include <array>
#include <mutex>

namespace {

const std::array<int, 5> ICON_SIZES = {16, 22, 24, 32, 48};

QIcon loadIcon(Hv::Tray::Icon icon)
{
    QIcon result;
    const QString name = QString::fromLatin1(Hv::Tray::iconName(icon));
    for (int size : ICON_SIZES)
        result.addFile(QStringLiteral(":/icons/%1-%2.png").arg(name).arg(size), QSize(size, size));
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
    : m_statusBarItem(new QSystemTrayIcon(this))
    , m_menu(new QMenu())
    , m_collectLogsAction(nullptr)
    , m_reportRunner(Hv::Tray::ReportRunner::create([](Hv::Tray::ReportRunner::Task task) {
        // From the worker: runs on this thread once the event loop gets to it.
        QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection);
    }))
{
    HV_TRACE();
    // Qt falls back from a StatusNotifier host to the XEmbed tray; with neither the item is
    // invisible but the application still follows the service.
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        HV_LOG_WARN("No system tray is available; the status item will not be shown");
    m_collectLogsAction = m_menu->addAction(QString::fromUtf8(Hv::Tray::COLLECT_LOGS_TITLE));
    QObject::connect(m_collectLogsAction, &QAction::triggered, this, [this] { collectLogs(); });
    m_statusBarItem->setContextMenu(m_menu);
    // The item has nothing but its menu, so a left click opens it too, as a click does on macOS;
    // the right click is the panel's (or the XEmbed tray's) own.
    QObject::connect(m_statusBarItem, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            m_menu->popup(QCursor::pos());
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

void HvTray::setIcon(const QIcon& image, const QString& status)
{
    const QIcon* icon = &image;
    HV_TRACE(icon, status.toStdString());
    m_statusBarItem->setIcon(image);
    m_statusBarItem->setToolTip(status);
    if (!m_statusBarItem->isVisible())
        m_statusBarItem->show();
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

void showPresentation(Icon icon, const std::string& toolTip)
{
    HvTray::instance()->setIcon(trayIcon(icon), QString::fromStdString(toolTip));
}

} // namespace Hv::Tray
