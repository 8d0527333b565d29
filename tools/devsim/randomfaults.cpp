// Random faults of the simulator.
#include "randomfaults.h"

#include <QStringList>

namespace {

const char *const KindNames[] = {"error", "info", "delay", "late", "split", "close", "garbage"};

// A delay the shell waits out, and one past its 5 s reply time-out.
constexpr int ShortDelayMaxMs = 300;
constexpr int LateDelayMs = 6500;
// The first write of a split reply: one byte never decodes on its own.
constexpr int SplitFirstWrite = 1;
const char ErrorDescription[] = "Injected fault";
const char InformationText[] = "Injected information";

const Korvex::Status::Code ErrorCodes[] = {Korvex::Status::Ok, Korvex::Status::GenericError,
                                           Korvex::Status::InvalidRequest, Korvex::Status::OkWithInformation,
                                           Korvex::Status::NotImplemented};

} // namespace

bool RandomFaults::configure(double rate, quint32 seed, const QString &kinds, QString &error)
{
    if (!(rate >= 0 && rate <= 1)) {
        error = QStringLiteral("--fault-rate expects a probability between 0 and 1");
        return false;
    }
    m_rate = rate;
    m_engine.seed(seed);
    m_kinds.clear();
    m_weights.clear();

    const QStringList entries = kinds.isEmpty() ? kindNames().split(',') : kinds.split(',');
    for (const QString &entry : entries) {
        const QString name = entry.section(':', 0, 0);
        bool ok = true;
        const int weight = entry.contains(':') ? entry.section(':', 1).toInt(&ok) : 1;
        int kind = 0;
        while (kind < KindCount && name != KindNames[kind])
            ++kind;
        if (kind == KindCount || !ok || weight < 0) {
            error = QStringLiteral("unknown fault kind or weight: ") + entry;
            return false;
        }
        m_kinds << static_cast<Kind>(kind);
        m_weights << weight;
    }
    int total = 0;
    for (int weight : qAsConst(m_weights))
        total += weight;
    if (total == 0) {
        error = QStringLiteral("--fault-kinds gives no kind a weight");
        return false;
    }
    return true;
}

Fault RandomFaults::draw(QString &description)
{
    Fault fault;
    if (std::uniform_real_distribution<double>(0, 1)(m_engine) >= m_rate)
        return fault;

    std::discrete_distribution<int> pick(m_weights.cbegin(), m_weights.cend());
    const Kind kind = m_kinds.at(pick(m_engine));
    description = KindNames[kind];
    switch (kind) {
    case Error: {
        const int index = std::uniform_int_distribution<int>(0, std::size(ErrorCodes) - 1)(m_engine);
        fault.error = true;
        fault.errorCode = ErrorCodes[index];
        fault.errorHasDescription = std::bernoulli_distribution(0.5)(m_engine);
        fault.errorDescription = ErrorDescription;
        description += ' ' + QString::fromStdString(Korvex::Status::Code_Name(fault.errorCode));
        break;
    }
    case Info:
        fault.info = true;
        fault.infoText = InformationText;
        break;
    case Delay:
        fault.delayMs = std::uniform_int_distribution<int>(1, ShortDelayMaxMs)(m_engine);
        description += ' ' + QString::number(fault.delayMs);
        break;
    case Late:
        fault.delayMs = LateDelayMs;
        description += ' ' + QString::number(fault.delayMs);
        break;
    case Split:
        fault.split = true;
        fault.splitAt = SplitFirstWrite;
        break;
    case Close:
        fault.close = true;
        break;
    case Garbage:
        fault.garbage = true;
        break;
    case KindCount:
        break;
    }
    return fault;
}

QString RandomFaults::kindNames()
{
    QStringList names;
    for (const char *name : KindNames)
        names << name;
    return names.join(',');
}
