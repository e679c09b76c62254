#include "HvFileReveal.h"

#include "HvFileUri.h"
#include "HvTrace.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace Hv::Tray {

namespace {

const char* const FILE_MANAGER_SERVICE = "org.freedesktop.FileManager1";
const char* const FILE_MANAGER_PATH = "/org/freedesktop/FileManager1";
const char* const FILE_MANAGER_INTERFACE = "org.freedesktop.FileManager1";

QUrl encodedFileUrl(const boost::filesystem::path& path)
{
    return QUrl::fromEncoded(QByteArray::fromStdString(fileUri(path.string())), QUrl::StrictMode);
}

void openContainingFolder(const boost::filesystem::path& path, const QString& reason)
{
    const boost::filesystem::path folder = path.parent_path();
    HV_LOG_WARN(LOG4CPLUS_TEXT("No file manager shows the report (") << reason.toStdString()
                << LOG4CPLUS_TEXT("); opening its folder ") << folder);
    if (!QDesktopServices::openUrl(encodedFileUrl(folder)))
        HV_LOG_WARN(LOG4CPLUS_TEXT("Unable to open folder ") << folder);
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
    // The URI is plain ASCII once encoded; the second argument is the (empty) startup id.
    call << QStringList{QString::fromStdString(fileUri(path.string()))} << QString();
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
