// Which of a guest's IPv4 addresses the host can reach, from the adapters of
// "showvminfo --machinereadable" and the interfaces the guest additions publish.
#pragma once

#include <QHash>
#include <QString>

namespace GuestAddress {

struct Choice
{
    QString address; // empty when no interface qualifies
    QString reason;  // how it was chosen, or why none was: for the log
};

// An interface whose MAC the guest publishes qualifies when that MAC is a
// host-only or bridged adapter's. One without a MAC (older additions, or ported
// ones) qualifies when its address is outside every NAT adapter's network and
// neither loopback nor link-local. The first qualifying one in the guest's own
// order wins.
Choice choose(const QHash<QString, QString> &info, const QHash<QString, QString> &guestProperties);

} // namespace GuestAddress
