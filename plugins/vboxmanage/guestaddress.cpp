// Choice of the guest address the shell talks to. A NAT adapter's address
// (10.0.2.15 and the like) is never chosen: the host cannot reach it.
#include "guestaddress.h"

#include <QHostAddress>
#include <QList>
#include <QMap>
#include <QPair>
#include <QRegularExpression>
#include <QStringList>

namespace GuestAddress {
namespace {

// Adapter attachments (nicN) whose guest address the host can reach.
const char *const ReachableAttachments[] = {"hostonly", "bridged", "hostonlynetwork"};
const char NatAttachment[] = "nat";
// natnetN="nat" stands for the NAT engine's default network of adapter N: 10.0.(N+1).0/24.
const char DefaultNatNetwork[] = "nat";
constexpr int DefaultNatPrefixLength = 24;
const char GuestNetPrefix[] = "/VirtualBox/GuestInfo/Net/";
const char DownStatus[] = "Down";

using Subnet = QPair<QHostAddress, int>;

struct Adapters
{
    QHash<QString, QString> reachableMacs; // upper-case MAC to "<attachment> adapter <N>"
    QList<Subnet> natNetworks;
};

QString subnetText(const Subnet &subnet)
{
    return QStringLiteral("%1/%2").arg(subnet.first.toString()).arg(subnet.second);
}

Adapters readAdapters(const QHash<QString, QString> &info)
{
    static const QRegularExpression adapter(QStringLiteral("^nic(\\d+)$"));
    Adapters adapters;
    // Slot order, so that the log names the networks the same way every time.
    QMap<int, QString> attachments;
    for (auto it = info.cbegin(); it != info.cend(); ++it) {
        const QRegularExpressionMatch match = adapter.match(it.key());
        if (match.hasMatch())
            attachments.insert(match.captured(1).toInt(), it.value());
    }
    for (auto it = attachments.cbegin(); it != attachments.cend(); ++it) {
        const QString slot = QString::number(it.key());
        for (const char *attachment : ReachableAttachments) {
            const QString mac = info.value(QStringLiteral("macaddress") + slot).toUpper();
            if (it.value() == QLatin1String(attachment) && !mac.isEmpty())
                adapters.reachableMacs.insert(mac, QStringLiteral("%1 adapter %2").arg(it.value(), slot));
        }
        if (it.value() != QLatin1String(NatAttachment))
            continue;
        const QString network = info.value(QStringLiteral("natnet") + slot, QLatin1String(DefaultNatNetwork));
        const Subnet subnet = network == QLatin1String(DefaultNatNetwork)
            ? Subnet(QHostAddress(QStringLiteral("10.0.%1.0").arg(it.key() + 1)), DefaultNatPrefixLength)
            : QHostAddress::parseSubnet(network);
        if (subnet.first.protocol() == QAbstractSocket::IPv4Protocol)
            adapters.natNetworks << subnet;
    }
    return adapters;
}

// The guest's interface numbers, ascending; gaps are possible after an interface went away.
QList<int> guestInterfaces(const QHash<QString, QString> &guestProperties)
{
    static const QRegularExpression interface(QStringLiteral("^%1(\\d+)/").arg(QLatin1String(GuestNetPrefix)));
    QMap<int, bool> found;
    for (auto it = guestProperties.cbegin(); it != guestProperties.cend(); ++it) {
        const QRegularExpressionMatch match = interface.match(it.key());
        if (match.hasMatch())
            found.insert(match.captured(1).toInt(), true);
    }
    return found.keys();
}

QString guestNet(int interface, const char *leaf)
{
    return QStringLiteral("%1%2/%3").arg(QLatin1String(GuestNetPrefix)).arg(interface).arg(QLatin1String(leaf));
}

// A unicast IPv4 address, else null: additions may publish 0.0.0.0 for an interface without one.
QHostAddress ipv4(const QString &text)
{
    static const QRegularExpression dotted(QStringLiteral("^\\d{1,3}(\\.\\d{1,3}){3}$"));
    const QHostAddress address(text);
    const bool unicast = address.protocol() == QAbstractSocket::IPv4Protocol && address != QHostAddress::AnyIPv4
        && !address.isMulticast() && !address.isBroadcast();
    return dotted.match(text).hasMatch() && unicast ? address : QHostAddress();
}

// Why an interface without a MAC does not qualify; empty when it does.
QString unreachable(const QHostAddress &address, const QString &status, const Adapters &adapters)
{
    // Stale values of an interface that went down stay published.
    if (status == QLatin1String(DownStatus))
        return QStringLiteral("down");
    if (address.isLoopback())
        return QStringLiteral("loopback");
    if (address.isLinkLocal())
        return QStringLiteral("link-local");
    for (const Subnet &network : adapters.natNetworks) {
        if (address.isInSubnet(network))
            return QStringLiteral("in NAT network %1").arg(subnetText(network));
    }
    return QString();
}

QString natNetworksText(const Adapters &adapters)
{
    if (adapters.natNetworks.isEmpty())
        return QStringLiteral("no NAT adapter");
    QStringList networks;
    for (const Subnet &network : adapters.natNetworks)
        networks << subnetText(network);
    return QStringLiteral("outside NAT networks %1").arg(networks.join(QStringLiteral(", ")));
}

} // namespace

Choice choose(const QHash<QString, QString> &info, const QHash<QString, QString> &guestProperties)
{
    const Adapters adapters = readAdapters(info);
    const QList<int> interfaces = guestInterfaces(guestProperties);
    if (interfaces.isEmpty())
        return {QString(), QStringLiteral("the guest publishes no network interface")};

    QStringList skipped;
    for (int interface : interfaces) {
        const QString text = guestProperties.value(guestNet(interface, "V4/IP"));
        const QHostAddress address = ipv4(text);
        const QString mac = guestProperties.value(guestNet(interface, "MAC")).toUpper();
        const QString which = QStringLiteral("interface %1").arg(interface);
        if (address.isNull()) {
            skipped << which + QStringLiteral(" has no usable IPv4 address");
        } else if (!mac.isEmpty()) {
            const QString adapter = adapters.reachableMacs.value(mac);
            if (!adapter.isEmpty())
                return {text, QStringLiteral("guest %1 (MAC %2) is on %3").arg(which, mac, adapter)};
            skipped << QStringLiteral("%1 %2 (MAC %3) is on no host-only or bridged adapter").arg(which, text, mac);
        } else {
            const QString status = guestProperties.value(guestNet(interface, "Status"));
            const QString reason = unreachable(address, status, adapters);
            if (reason.isEmpty()) {
                return {text, QStringLiteral("guest %1 publishes no MAC; its address is %2")
                                  .arg(which, natNetworksText(adapters))};
            }
            skipped << QStringLiteral("%1 %2 (no MAC) is %3").arg(which, text, reason);
        }
    }
    return {QString(), QStringLiteral("no guest interface qualifies: %1").arg(skipped.join(QStringLiteral("; ")))};
}

} // namespace GuestAddress
