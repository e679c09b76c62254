#include "HvStatusNotifierItem.h"

#include "HvTrace.h"
#include "HvTrayImpl.h"

#include <QAction>
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QMenu>
#include <QtEndian>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

const char* const WATCHER = "org.kde.StatusNotifierWatcher";
const char* const ITEM_INTERFACE = "org.kde.StatusNotifierItem";
const char* const MENU_INTERFACE = "com.canonical.dbusmenu";
const char* const PROPERTIES = "org.freedesktop.DBus.Properties";
const char* const INTROSPECTABLE = "org.freedesktop.DBus.Introspectable";

// The values this process sends whose D-Bus types Qt does not know by itself.
struct IconPixmap {
    int width = 0;
    int height = 0;
    QByteArray argb; // ARGB32, network byte order
};
struct ToolTip {
    QString iconName;
    QList<IconPixmap> pixmaps;
    QString title;
    QString text;
};
struct MenuLayout {
    int id = 0;
    QVariantMap properties;
    QList<QDBusVariant> children; // each a MenuLayout
};
struct MenuEntry {
    int id = 0;
    QVariantMap properties;
};
struct MenuEntryKeys {
    int id = 0;
    QStringList keys;
};

// One D-Bus structure of the fields, in order.
template <typename... Fields>
QDBusArgument& structure(QDBusArgument& out, const Fields&... fields)
{
    out.beginStructure();
    (out << ... << fields);
    out.endStructure();
    return out;
}

QDBusArgument& operator<<(QDBusArgument& out, const IconPixmap& pixmap)
{
    return structure(out, pixmap.width, pixmap.height, pixmap.argb);
}

QDBusArgument& operator<<(QDBusArgument& out, const ToolTip& toolTip)
{
    return structure(out, toolTip.iconName, toolTip.pixmaps, toolTip.title, toolTip.text);
}

QDBusArgument& operator<<(QDBusArgument& out, const MenuLayout& layout)
{
    return structure(out, layout.id, layout.properties, layout.children);
}

QDBusArgument& operator<<(QDBusArgument& out, const MenuEntry& entry)
{
    return structure(out, entry.id, entry.properties);
}

QDBusArgument& operator<<(QDBusArgument& out, const MenuEntryKeys& entry)
{
    return structure(out, entry.id, entry.keys);
}

// These types are only ever written: every call this process serves takes standard types.
template <typename T>
void registerSentType()
{
    QDBusMetaType::registerMarshallOperators(
        QMetaType::fromType<T>(), [](QDBusArgument& out, const void* value) { out << *static_cast<const T*>(value); },
        [](const QDBusArgument&, void*) {});
}

void registerSentTypes()
{
    static const bool registered = [] {
        registerSentType<IconPixmap>();
        registerSentType<QList<IconPixmap>>();
        registerSentType<ToolTip>();
        registerSentType<MenuLayout>();
        registerSentType<MenuEntry>();
        registerSentType<QList<MenuEntry>>();
        registerSentType<MenuEntryKeys>();
        registerSentType<QList<MenuEntryKeys>>();
        return true;
    }();
    (void)registered;
}

// What a caller did wrong; each kind is logged once, then only answered.
enum class Fault { UnknownMethod, WrongArguments, UnknownId };

bool refuse(const QDBusMessage& call, const QDBusConnection& bus, Fault fault, const char* error, const QString& text)
{
    static std::array<bool, 3> logged{};
    if (!std::exchange(logged.at(static_cast<size_t>(fault)), true))
        HV_LOG_WARN("Refused a D-Bus call from " << call.service().toStdString() << ": " << text.toStdString()
                                               << " (further calls of this kind are refused silently)");
    bus.send(call.createErrorReply(QString::fromLatin1(error), text));
    return true;
}

bool refuseUnknownMethod(const QDBusMessage& call, const QDBusConnection& bus)
{
    return refuse(call, bus, Fault::UnknownMethod, "org.freedesktop.DBus.Error.UnknownMethod",
                  QStringLiteral("No method %1.%2 at %3").arg(call.interface(), call.member(), call.path()));
}

bool refuseArguments(const QDBusMessage& call, const QDBusConnection& bus, const QString& expected)
{
    return refuse(call, bus, Fault::WrongArguments, "org.freedesktop.DBus.Error.InvalidArgs",
                  QStringLiteral("%1 takes (%2), not (%3)").arg(call.member(), expected, call.signature()));
}

bool refuseId(const QDBusMessage& call, const QDBusConnection& bus, int id)
{
    return refuse(call, bus, Fault::UnknownId, "org.freedesktop.DBus.Error.InvalidArgs",
                  QStringLiteral("No menu entry %1 (%2)").arg(id).arg(call.member()));
}

// org.freedesktop.DBus.Properties of an object with one interface of read-only properties, the
// `names` that `read` gives.
bool answerProperties(const QDBusMessage& call, const QDBusConnection& bus, const char* interface,
                      const QStringList& names, const std::function<QVariant(const QString&)>& read)
{
    const QString member = call.member();
    const QString signature = member == u"Get" ? "ss" : member == u"GetAll" ? "s" : member == u"Set" ? "ssv" : "";
    if (signature.isEmpty())
        return refuseUnknownMethod(call, bus);
    if (call.signature() != signature)
        return refuseArguments(call, bus, signature);
    const QVariantList arguments = call.arguments();
    const QString asked = arguments.at(0).toString();
    if (asked != QLatin1String(interface) && !(member == u"GetAll" && asked.isEmpty()))
        return refuse(call, bus, Fault::UnknownMethod, "org.freedesktop.DBus.Error.UnknownInterface",
                      QStringLiteral("No interface %1 at %2").arg(asked, call.path()));
    if (member == u"Set")
        return refuse(call, bus, Fault::UnknownMethod, "org.freedesktop.DBus.Error.PropertyReadOnly",
                      QStringLiteral("Property %1 is read-only").arg(arguments.at(1).toString()));
    if (member == u"GetAll") {
        QVariantMap all;
        for (const QString& name : names)
            all.insert(name, read(name));
        bus.send(call.createReply(all));
        return true;
    }
    const QVariant value = names.contains(arguments.at(1).toString()) ? read(arguments.at(1).toString()) : QVariant();
    if (!value.isValid())
        return refuse(call, bus, Fault::UnknownMethod, "org.freedesktop.DBus.Error.UnknownProperty",
                      QStringLiteral("No property %1 of %2").arg(arguments.at(1).toString(), asked));
    bus.send(call.createReply(QVariant::fromValue(QDBusVariant(value))));
    return true;
}

void sendSignal(const char* path, const char* interface, const char* name, const QVariantList& arguments = {})
{
    QDBusMessage signal = QDBusMessage::createSignal(QString::fromLatin1(path), QString::fromLatin1(interface),
                                                     QString::fromLatin1(name));
    signal.setArguments(arguments);
    QDBusConnection::sessionBus().send(signal);
}

// Qt marks a mnemonic with "&", dbusmenu with "_".
QString menuLabel(const QString& text)
{
    QString label;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'_')
            label += QStringLiteral("__");
        else if (text[i] == u'&' && i + 1 < text.size())
            label += text[++i] == u'&' ? QChar(u'&') : (QString(u'_') + text[i]);
        else
            label += text[i];
    }
    return label;
}

// Where hosts look up the icon names: an install under /usr adds nothing (hosts search its hicolor
// theme anyway), an install elsewhere adds its icon folder, an uninstalled build its own copy.
QString iconThemePath()
{
    static const QString path = [] {
        const QDir installed(QCoreApplication::applicationDirPath() + QStringLiteral("/" HV_TRAY_INSTALLED_ICONS));
        if (!installed.exists(QStringLiteral("hicolor/48x48/apps/halvo-softphone-tray-waiting.png")))
            return QStringLiteral(HV_TRAY_BUILD_ICONS);
        return installed.canonicalPath() == u"/usr/share/icons" ? QString() : installed.canonicalPath();
    }();
    return path;
}

const QStringList MENU_METHODS = {"GetLayout:iias", "GetGroupProperties:aias", "GetProperty:is", "Event:isvu",
                                  "EventGroup:a(isvu)", "AboutToShow:i", "AboutToShowGroup:ai"};
const QStringList MENU_PROPERTIES = {"Version", "TextDirection", "Status", "IconThemePath"};
const QStringList ITEM_PROPERTIES = {"Category", "Id", "Title", "Status", "WindowId", "IconThemePath", "Menu",
                                     "ItemIsMenu", "IconName", "IconPixmap", "OverlayIconName", "OverlayIconPixmap",
                                     "AttentionIconName", "AttentionIconPixmap", "AttentionMovieName", "ToolTip"};

} // namespace

const char* const HvDBusMenu::PATH = "/MenuBar";

HvDBusMenu::HvDBusMenu(QMenu* menu, QObject* parent)
    : QDBusVirtualObject(parent)
    , m_menu(menu)
{
    HV_TRACE();
    registerSentTypes();
    for (QAction* action : menu->actions())
        QObject::connect(action, &QAction::changed, this, [this, action] { actionChanged(action); });
}

std::optional<QAction*> HvDBusMenu::entry(int id) const
{
    const QList<QAction*> actions = m_menu->actions();
    if (id == 0)
        return nullptr;
    if (id < 0 || id > actions.size())
        return std::nullopt;
    return actions.at(id - 1);
}

QVariantMap HvDBusMenu::properties(QAction* action, const QStringList& names) const
{
    QVariantMap all;
    if (action == nullptr)
        all.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    else if (action->isSeparator())
        all = {{QStringLiteral("type"), QStringLiteral("separator")}, {QStringLiteral("visible"), action->isVisible()}};
    else
        all = {{QStringLiteral("label"), menuLabel(action->text())},
               {QStringLiteral("enabled"), action->isEnabled()},
               {QStringLiteral("visible"), action->isVisible()}};
    if (names.isEmpty())
        return all;
    QVariantMap asked;
    for (const QString& name : names)
        if (all.contains(name))
            asked.insert(name, all.value(name));
    return asked;
}

void HvDBusMenu::actionChanged(QAction* action)
{
    const int id = static_cast<int>(m_menu->actions().indexOf(action)) + 1;
    HV_TRACE(id, action->text().toStdString(), action->isEnabled());
    if (id == 0)
        return;
    ++m_revision;
    sendSignal(PATH, MENU_INTERFACE, "ItemsPropertiesUpdated",
               {QVariant::fromValue(QList<MenuEntry>{{id, properties(action, {})}}),
                QVariant::fromValue(QList<MenuEntryKeys>{})});
    sendSignal(PATH, MENU_INTERFACE, "LayoutUpdated", {QVariant::fromValue(m_revision), QVariant::fromValue(0)});
}

void HvDBusMenu::runEvent(QAction* action, const QString& eventId)
{
    HV_TRACE(eventId.toStdString());
    if (action == nullptr || eventId != u"clicked")
        return;
    // After the reply, so that the host is not kept waiting by what the action does; a click that
    // comes while the entry is disabled does nothing.
    QMetaObject::invokeMethod(
        action, [action] {
            if (action->isEnabled())
                action->trigger();
        },
        Qt::QueuedConnection);
}

QString HvDBusMenu::introspect(const QString&) const
{
    return QString::fromLatin1(R"xml(<interface name="com.canonical.dbusmenu">
  <property name="Version" type="u" access="read"/>
  <property name="TextDirection" type="s" access="read"/>
  <property name="Status" type="s" access="read"/>
  <property name="IconThemePath" type="as" access="read"/>
  <method name="GetLayout"><arg name="parentId" type="i" direction="in"/><arg name="recursionDepth" type="i" direction="in"/><arg name="propertyNames" type="as" direction="in"/><arg name="revision" type="u" direction="out"/><arg name="layout" type="(ia{sv}av)" direction="out"/></method>
  <method name="GetGroupProperties"><arg name="ids" type="ai" direction="in"/><arg name="propertyNames" type="as" direction="in"/><arg name="properties" type="a(ia{sv})" direction="out"/></method>
  <method name="GetProperty"><arg name="id" type="i" direction="in"/><arg name="name" type="s" direction="in"/><arg name="value" type="v" direction="out"/></method>
  <method name="Event"><arg name="id" type="i" direction="in"/><arg name="eventId" type="s" direction="in"/><arg name="data" type="v" direction="in"/><arg name="timestamp" type="u" direction="in"/></method>
  <method name="EventGroup"><arg name="events" type="a(isvu)" direction="in"/><arg name="idErrors" type="ai" direction="out"/></method>
  <method name="AboutToShow"><arg name="id" type="i" direction="in"/><arg name="needUpdate" type="b" direction="out"/></method>
  <method name="AboutToShowGroup"><arg name="ids" type="ai" direction="in"/><arg name="updatesNeeded" type="ai" direction="out"/><arg name="idErrors" type="ai" direction="out"/></method>
  <signal name="ItemsPropertiesUpdated"><arg name="updatedProps" type="a(ia{sv})"/><arg name="removedProps" type="a(ias)"/></signal>
  <signal name="LayoutUpdated"><arg name="revision" type="u"/><arg name="parent" type="i"/></signal>
  <signal name="ItemActivationRequested"><arg name="id" type="i"/><arg name="timestamp" type="u"/></signal>
</interface>
)xml");
}

bool HvDBusMenu::handleMessage(const QDBusMessage& call, const QDBusConnection& bus)
{
    HV_TRACE(call.interface().toStdString(), call.member().toStdString());
    const QString interface = call.interface();
    if (interface == QLatin1String(INTROSPECTABLE))
        return false; // the toolkit answers with introspect()
    if (interface == QLatin1String(PROPERTIES))
        return answerProperties(call, bus, MENU_INTERFACE, MENU_PROPERTIES, [](const QString& name) -> QVariant {
            if (name == u"Version")
                return 3u;
            if (name == u"TextDirection")
                return QGuiApplication::isRightToLeft() ? QStringLiteral("rtl") : QStringLiteral("ltr");
            if (name == u"Status")
                return QStringLiteral("normal");
            return QStringList();
        });
    const QString member = call.member();
    const auto method = std::find_if(MENU_METHODS.begin(), MENU_METHODS.end(),
                                     [&member](const QString& m) { return m.section(u':', 0, 0) == member; });
    if ((!interface.isEmpty() && interface != QLatin1String(MENU_INTERFACE)) || method == MENU_METHODS.end())
        return refuseUnknownMethod(call, bus);
    if (call.signature() != method->section(u':', 1))
        return refuseArguments(call, bus, method->section(u':', 1));

    const QVariantList arguments = call.arguments();
    if (member == u"GetLayout" || member == u"GetProperty" || member == u"Event" || member == u"AboutToShow") {
        const int id = arguments.at(0).toInt();
        const std::optional<QAction*> action = entry(id);
        if (!action)
            return refuseId(call, bus, id);
        if (member == u"GetLayout") {
            const QStringList names = arguments.at(2).toStringList();
            MenuLayout layout{id, properties(*action, names), {}};
            // A flat menu: only the root has entries, shown unless the depth is 0.
            const bool withChildren = *action == nullptr && arguments.at(1).toInt() != 0;
            const QList<QAction*> actions = withChildren ? m_menu->actions() : QList<QAction*>();
            for (qsizetype i = 0; i < actions.size(); ++i)
                layout.children.append(QDBusVariant(QVariant::fromValue(
                    MenuLayout{static_cast<int>(i) + 1, properties(actions.at(i), names), {}})));
            bus.send(call.createReply({QVariant::fromValue(m_revision), QVariant::fromValue(layout)}));
        } else if (member == u"GetProperty") {
            const QString name = arguments.at(1).toString();
            const QVariant value = properties(*action, {name}).value(name);
            if (!value.isValid())
                return refuse(call, bus, Fault::WrongArguments, "org.freedesktop.DBus.Error.InvalidArgs",
                              QStringLiteral("Menu entry %1 has no property %2").arg(id).arg(name));
            bus.send(call.createReply(QVariant::fromValue(QDBusVariant(value))));
        } else if (member == u"Event") {
            bus.send(call.createReply());
            runEvent(*action, arguments.at(1).toString());
        } else {
            bus.send(call.createReply(false));
        }
        return true;
    }

    // The group calls: unknown ids are listed, or refused when none is known.
    QList<int> ids;
    QList<std::pair<QAction*, QString>> events;
    if (member == u"EventGroup") {
        const QDBusArgument list = arguments.at(0).value<QDBusArgument>();
        list.beginArray();
        while (!list.atEnd()) {
            int id = 0;
            QString eventId;
            QDBusVariant data;
            uint timestamp = 0;
            list.beginStructure();
            list >> id >> eventId >> data >> timestamp;
            list.endStructure();
            ids.append(id);
            if (const std::optional<QAction*> action = entry(id))
                events.append({*action, eventId});
        }
        list.endArray();
    } else {
        ids = qdbus_cast<QList<int>>(arguments.at(0));
    }
    if (member == u"GetGroupProperties" && ids.isEmpty()) // all of them
        for (int id = 0; id <= m_menu->actions().size(); ++id)
            ids.append(id);
    QList<int> unknown;
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(unknown), [this](int id) { return !entry(id); });
    if (!ids.isEmpty() && unknown.size() == ids.size())
        return refuseId(call, bus, unknown.front());
    if (member == u"GetGroupProperties") {
        QList<MenuEntry> found;
        for (int id : ids)
            if (const std::optional<QAction*> action = entry(id))
                found.append({id, properties(*action, arguments.at(1).toStringList())});
        bus.send(call.createReply(QVariant::fromValue(found)));
    } else if (member == u"EventGroup") {
        bus.send(call.createReply(QVariant::fromValue(unknown)));
        for (const auto& [action, eventId] : events)
            runEvent(action, eventId);
    } else {
        bus.send(call.createReply({QVariant::fromValue(QList<int>()), QVariant::fromValue(unknown)}));
    }
    return true;
}

const char* const HvStatusNotifierItem::PATH = "/StatusNotifierItem";

bool HvStatusNotifierItem::watcherAvailable()
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() != nullptr
        && bus.interface()->isServiceRegistered(QString::fromLatin1(WATCHER)).value();
}

HvStatusNotifierItem::HvStatusNotifierItem(QMenu* menu, std::function<void()> activate, QObject* parent)
    : QDBusVirtualObject(parent)
    , m_activate(std::move(activate))
    , m_service(QStringLiteral("org.kde.StatusNotifierItem-%1-1").arg(QCoreApplication::applicationPid()))
{
    HV_TRACE();
    registerSentTypes();
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Published before the watcher hears of the item, so that hosts find it complete.
    if (!bus.registerVirtualObject(QString::fromLatin1(HvDBusMenu::PATH), new HvDBusMenu(menu, this))
        || !bus.registerVirtualObject(QString::fromLatin1(PATH), this))
        HV_LOG_WARN("Unable to publish the status item on the session bus: " << bus.lastError().message().toStdString());
    if (!bus.registerService(m_service)) {
        HV_LOG_WARN("Unable to own " << m_service.toStdString() << ": " << bus.lastError().message().toStdString());
        m_service = bus.baseService();
    }
    auto* watcher = new QDBusServiceWatcher(QString::fromLatin1(WATCHER), bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    QObject::connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
                     [this](const QString&, const QString&, const QString& owner) {
                         if (!owner.isEmpty())
                             registerWithWatcher();
                     });
    registerWithWatcher();
}

void HvStatusNotifierItem::registerWithWatcher()
{
    HV_TRACE(m_service.toStdString());
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(WATCHER), QStringLiteral("/StatusNotifierWatcher"),
                                                       QString::fromLatin1(WATCHER),
                                                       QStringLiteral("RegisterStatusNotifierItem"));
    call << m_service;
    auto* reply = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    QObject::connect(reply, &QDBusPendingCallWatcher::finished, this, [](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        if (finished->isError())
            HV_LOG_WARN("The StatusNotifierWatcher refused the status item: "
                        << finished->error().message().toStdString());
        else
            HV_LOG_INFO("The status item is registered with the StatusNotifierWatcher");
    });
}

void HvStatusNotifierItem::setPresentation(const Hv::Tray::Presentation& presentation)
{
    HV_TRACE(Hv::Tray::iconName(presentation.icon), presentation.status, presentation.needsAttention);
    const Hv::Tray::Presentation before = std::exchange(m_presentation, presentation);
    if (presentation.icon != before.icon)
        sendSignal(PATH, ITEM_INTERFACE, "NewIcon");
    if (presentation.title != before.title || presentation.status != before.status)
        sendSignal(PATH, ITEM_INTERFACE, "NewToolTip");
    if (presentation.needsAttention != before.needsAttention)
        sendSignal(PATH, ITEM_INTERFACE, "NewStatus", {itemProperty(QStringLiteral("Status"))});
}

void HvStatusNotifierItem::showMessage(const QString& title, const QString& text) const
{
    HV_TRACE(title.toStdString(), text.toStdString());
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    call.setArguments({QStringLiteral("Halvo Softphone"), 0u, iconName(), title, text, QStringList(), QVariantMap(), -1});
    auto* reply = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
    QObject::connect(reply, &QDBusPendingCallWatcher::finished, reply, [](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        if (finished->isError())
            HV_LOG_WARN("Unable to show a notification: " << finished->error().message().toStdString());
    });
}

QString HvStatusNotifierItem::iconName() const
{
    return QStringLiteral("halvo-softphone-tray-") + QString::fromLatin1(Hv::Tray::iconName(m_presentation.icon));
}

const QVariant& HvStatusNotifierItem::pixmaps(Hv::Tray::Icon icon) const
{
    QVariant& cached = m_pixmaps.at(static_cast<size_t>(icon));
    if (cached.isValid())
        return cached;
    QList<IconPixmap> result;
    for (int size : Hv::Tray::ICON_SIZES) {
        const QImage image = QImage(Hv::Tray::iconResource(icon, size)).convertToFormat(QImage::Format_ARGB32);
        IconPixmap pixmap{image.width(), image.height(), QByteArray(image.width() * image.height() * 4, '\0')};
        for (int y = 0; y < image.height(); ++y) {
            const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x)
                qToBigEndian<quint32>(line[x], pixmap.argb.data() + 4 * (y * image.width() + x));
        }
        result.append(pixmap);
    }
    cached = QVariant::fromValue(result);
    return cached;
}

QVariant HvStatusNotifierItem::itemProperty(const QString& name) const
{
    if (name == u"Category")
        return QStringLiteral("Communications");
    if (name == u"Id")
        return QStringLiteral("halvo-softphone-tray");
    if (name == u"Title")
        return QStringLiteral("Halvo Softphone");
    if (name == u"Status")
        return m_presentation.needsAttention ? QStringLiteral("NeedsAttention") : QStringLiteral("Active");
    if (name == u"WindowId")
        return 0;
    if (name == u"IconThemePath")
        return iconThemePath();
    if (name == u"Menu")
        return QVariant::fromValue(QDBusObjectPath(QString::fromLatin1(HvDBusMenu::PATH)));
    if (name == u"ItemIsMenu")
        return true;
    if (name == u"IconName")
        return iconName();
    if (name == u"IconPixmap")
        return pixmaps(m_presentation.icon);
    if (name == u"AttentionIconName")
        return QStringLiteral("halvo-softphone-tray-") + QString::fromLatin1(Hv::Tray::iconName(Hv::Tray::Icon::Error));
    if (name == u"AttentionIconPixmap")
        return pixmaps(Hv::Tray::Icon::Error);
    if (name == u"OverlayIconPixmap")
        return QVariant::fromValue(QList<IconPixmap>());
    if (name == u"ToolTip")
        return QVariant::fromValue(ToolTip{iconName(), {}, QString::fromStdString(m_presentation.title),
                                           QString::fromStdString(m_presentation.status)});
    return QString(); // OverlayIconName, AttentionMovieName
}

QString HvStatusNotifierItem::introspect(const QString&) const
{
    QString xml = QStringLiteral("<interface name=\"org.kde.StatusNotifierItem\">\n");
    for (const QString& name : ITEM_PROPERTIES)
        xml += QStringLiteral("  <property name=\"%1\" type=\"%2\" access=\"read\"/>\n")
                   .arg(name, QString::fromLatin1(QDBusMetaType::typeToSignature(itemProperty(name).metaType())));
    return xml + QString::fromLatin1(R"xml(  <method name="ContextMenu"><arg name="x" type="i" direction="in"/><arg name="y" type="i" direction="in"/></method>
  <method name="Activate"><arg name="x" type="i" direction="in"/><arg name="y" type="i" direction="in"/></method>
  <method name="SecondaryActivate"><arg name="x" type="i" direction="in"/><arg name="y" type="i" direction="in"/></method>
  <method name="Scroll"><arg name="delta" type="i" direction="in"/><arg name="orientation" type="s" direction="in"/></method>
  <signal name="NewTitle"/>
  <signal name="NewIcon"/>
  <signal name="NewAttentionIcon"/>
  <signal name="NewOverlayIcon"/>
  <signal name="NewToolTip"/>
  <signal name="NewStatus"><arg name="status" type="s"/></signal>
</interface>
)xml");
}

bool HvStatusNotifierItem::handleMessage(const QDBusMessage& call, const QDBusConnection& bus)
{
    HV_TRACE(call.interface().toStdString(), call.member().toStdString());
    const QString interface = call.interface();
    if (interface == QLatin1String(INTROSPECTABLE))
        return false; // the toolkit answers with introspect()
    if (interface == QLatin1String(PROPERTIES))
        return answerProperties(call, bus, ITEM_INTERFACE, ITEM_PROPERTIES,
                                [this](const QString& name) { return itemProperty(name); });
    const QString member = call.member();
    const bool click = member == u"Activate" || member == u"SecondaryActivate" || member == u"ContextMenu";
    if ((!interface.isEmpty() && interface != QLatin1String(ITEM_INTERFACE)) || (!click && member != u"Scroll"))
        return refuseUnknownMethod(call, bus);
    const QString signature = click ? QStringLiteral("ii") : QStringLiteral("is");
    if (call.signature() != signature)
        return refuseArguments(call, bus, signature);
    bus.send(call.createReply());
    if (click)
        m_activate();
    return true;
}
