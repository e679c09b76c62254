#include "HvFileReveal.h"

#include "HvFileUri.h"
#include "HvTrace.h"
#include "HvTrayImpl.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QMessageBox>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace Hv::Tray {

namespace {

const char* const FILE_MANAGER_SERVICE = "org.freedesktop.FileManager1";
const char* const FILE_MANAGER_PATH = "/org/freedesktop/FileManager1";
const char* const FILE_MANAGER_INTERFACE = "org.freedesktop.FileManager1";
const char* const NOTIFICATION_SERVICE = "org.freedesktop.Notifications";
const char* const FOLDER_OPENER = "xdg-open";
const char* const SAVED_TO = "Logs saved to";

// Plain ASCII once encoded.
QString encodedUri(const boost::filesystem::path& path)
{
    return QString::fromStdString(fileUri(path.string()));
}

bool hasNotificationService()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || bus.interface() == nullptr)
        return false;
    const QString service = QString::fromLatin1(NOTIFICATION_SERVICE);
    return bus.interface()->isServiceRegistered(service).value()
        || bus.interface()->activatableServiceNames().value().contains(service);
}

// The last resort: the user learns the path from a notification of the item, or from a box when
// the desktop has no notification service.
void tellWhereTheArchiveIs(const boost::filesystem::path& path)
{
    HV_TRACE_FREE(path);
    const QString archive = QString::fromStdString(path.string());
    if (hasNotificationService()) {
        HvTray::instance()->showMessage(QString::fromLatin1(SAVED_TO), archive);
        return;
    }
    QMessageBox box(QMessageBox::Information, QStringLiteral("Halvo Softphone"), QString::fromLatin1(SAVED_TO),
                    QMessageBox::Ok);
    box.setInformativeText(archive);
    box.exec();
}

// Asks the desktop's default handler to open the folder; tells the user where the archive is when
// no handler can (none installed, or it reports a failure).
void openContainingFolder(const boost::filesystem::path& path, const QString& reason)
{
    const boost::filesystem::path folder = path.parent_path();
    HV_LOG_WARN(LOG4CPLUS_TEXT("No file manager shows the report (") << reason.toStdString()
                << LOG4CPLUS_TEXT("); opening its folder ") << folder);
    auto* opener = new QProcess();
    QObject::connect(opener, &QProcess::finished, opener,
                     [opener, path, folder](int exitCode, QProcess::ExitStatus status) {
                         opener->deleteLater();
                         if (status == QProcess::NormalExit && exitCode == 0)
                             return;
                         HV_LOG_WARN(LOG4CPLUS_TEXT("Unable to open folder ") << folder << LOG4CPLUS_TEXT(": ")
                                     << FOLDER_OPENER << LOG4CPLUS_TEXT(" ended with status ") << exitCode);
                         tellWhereTheArchiveIs(path);
                     });
    QObject::connect(opener, &QProcess::errorOccurred, opener, [opener, path, folder](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        opener->deleteLater();
        HV_LOG_WARN(LOG4CPLUS_TEXT("Unable to open folder ") << folder << LOG4CPLUS_TEXT(": ")
                    << opener->errorString().toStdString());
        tellWhereTheArchiveIs(path);
    });
    opener->start(QString::fromLatin1(FOLDER_OPENER), {encodedUri(folder)});
}

} // namespace

void revealFile(const boost::filesystem::path& path)
{
    HV_TRACE_FREE(path);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openContainingFolder(path, bus.lastError().message());
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(FILE_MANAGER_SERVICE),
        QString::fromLatin1(FILE_MANAGER_PATH), QString::fromLatin1(FILE_MANAGER_INTERFACE),
        QStringLiteral("ShowItems"));
    // The second argument is the (empty) startup id.
    call << QStringList{encodedUri(path)} << QString();
    // Asynchronous: starting a file manager by bus activation may take seconds, and the tray
    // should not freeze meanwhile.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [path](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         if (finished->isError())
                             openContainingFolder(path, finished->error().name() + QStringLiteral(": ")
                                                            + finished->error().message());
                     });
}

} // namespace Hv::Tray
