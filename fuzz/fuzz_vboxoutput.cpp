// Readers of VBoxManage output: arbitrary bytes, decoded as the plug-in
// decodes the manager's output, through every parser.
// Input: a snapshot name, a line feed, then the output text.
#include "fuzzcheck.h"

#include <QString>

#include "guestaddress.h"
#include "vboxoutput.h"
#include "vmtoolsengine.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    Fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = Fuzz::bytes(data, size);
    const int newline = input.indexOf('\n');
    const QString name = QString::fromUtf8(input.left(qMax(newline, 0)));
    const QString text = QString::fromUtf8(input);

    for (const VBoxOutput::MachineEntry &entry : VBoxOutput::parseMachineList(text)) {
        FUZZ_CHECK(!entry.uuid.isEmpty());
        FUZZ_CHECK(!entry.uuid.contains('}') && !entry.name.contains('\n'));
    }

    const QHash<QString, QString> extraData = VBoxOutput::parseExtraData(text);
    for (auto it = extraData.cbegin(); it != extraData.cend(); ++it)
        FUZZ_CHECK(!it.key().contains('\n') && !it.value().contains('\n'));

    const QHash<QString, QString> values = VBoxOutput::parseMachineReadable(text);
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        FUZZ_CHECK(!it.key().isEmpty() && !it.key().contains('=') && !it.key().contains('"'));
        const int state = VBoxOutput::machineState(it.value());
        FUZZ_CHECK(state >= MachineState::UnknownState && state <= MachineState::Aborted);
    }

    // A snapshot found by name is one of the values read.
    if (VBoxOutput::hasSnapshot(values, name))
        FUZZ_CHECK(values.values().contains(name));

    const QHash<QString, QString> properties = VBoxOutput::parseGuestProperties(text);
    // An address is only ever one the guest reported, and there is always a reason.
    const GuestAddress::Choice choice = GuestAddress::choose(values, properties);
    FUZZ_CHECK(choice.address.isEmpty() || properties.values().contains(choice.address));
    FUZZ_CHECK(!choice.reason.isEmpty());
    return 0;
}
