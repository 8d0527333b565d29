// Command-line options of the device simulator.
#include "simoptions.h"

#include <QCommandLineParser>
#include <QTextStream>

#include <cstdio>

#include "randomfaults.h"

namespace {

constexpr int ExitUsage = 2;
const char Description[] =
    "Plays the agent of a virtual device on ADDRESS:PORT for tests and demos.\n"
    "Logs \"connect N\", \"disconnect N\", \"request N <message>\" and\n"
    "\"undecodable N <hex>\" lines. Faults apply to every request but the\n"
    "agent-version read, unless --fault-all is given.";

bool parseCode(const QString &text, Korvex::Status::Code &code)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (isNumber) {
        if (!Korvex::Status::Code_IsValid(number))
            return false;
        code = static_cast<Korvex::Status::Code>(number);
        return true;
    }
    return Korvex::Status::Code_Parse(text.toStdString(), &code);
}

int fail(const QString &message)
{
    QTextStream(stderr) << "korvex-devsim: " << message << Qt::endl;
    return ExitUsage;
}

} // namespace

int parseOptions(const QStringList &arguments, SimOptions &options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(Description);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption address("address", "Address to listen on (required); repeated, one device per "
                                                "address, each with its own state.", "ADDRESS");
    const QCommandLineOption port("port", "Port to listen on (default 22666).", "PORT", "22666");
    const QCommandLineOption log("log", "Append the request log to FILE (default stderr).", "FILE");
    const QCommandLineOption set("set", "Initial value of a parameter, e.g. BatteryLevel=87 (repeatable).",
                                 "NAME=VALUE");
    const QCommandLineOption agentVersion("agent-version", "Agent version reported (default 2.8.1).", "V");
    const QCommandLineOption error("error", "Reply Error with this Status code, name or number.",
                                   "CODE[:DESCRIPTION]");
    const QCommandLineOption info("info", "Reply None with OkWithInformation and TEXT.", "TEXT");
    const QCommandLineOption reply("reply", "Reply with exactly these bytes.", "HEX");
    const QCommandLineOption delay("delay", "Wait MS before replying.", "MS");
    const QCommandLineOption silent("silent", "Never reply.");
    const QCommandLineOption split("split", "Send each reply in two writes about 50 ms apart.");
    const QCommandLineOption close("close", "Close the connection instead of replying.");
    const QCommandLineOption garbage("garbage", "Reply with bytes that never decode.");
    const QCommandLineOption faultAll("fault-all", "Apply the fault to the agent-version read too.");
    const QCommandLineOption faultCount("fault-count", "Apply the fault to the first N eligible requests only.",
                                        "N");
    const QCommandLineOption faultRate(
        "fault-rate",
        "Random faults instead of a fixed one: each eligible request gets one with probability P (0 to 1), of a "
        "kind drawn from --fault-kinds; the log names each one in a line \"fault N KIND [DETAIL]\" after its "
        "request. --fault-count caps their number.",
        "P");
    const QCommandLineOption seed("seed", "Seed of the random faults (default 1): the same seed and requests "
                                          "give the same faults.",
                                  "S");
    const QCommandLineOption faultKinds(
        "fault-kinds",
        "Kinds of random faults, comma-separated, each with an optional :WEIGHT (default: all, weight 1). "
        "error: Error reply with a random code, described or not (detail: the code); info: OkWithInformation; "
        "delay: reply after 1 to 300 ms (detail: ms); late: reply after 6500 ms, past the shell's time-out; "
        "split: the first byte alone, the rest 50 ms later; close: close the connection; garbage: bytes that "
        "never decode.",
        "LIST");
    parser.addOptions({address, port, log, set, agentVersion, error, info, reply, delay, silent, split, close,
                       garbage, faultAll, faultCount, faultRate, seed, faultKinds});

    if (!parser.parse(arguments))
        return fail(parser.errorText());
    if (parser.isSet("help")) {
        QTextStream(stdout) << parser.helpText();
        return 0;
    }
    if (parser.isSet("version")) {
        QTextStream(stdout) << QCoreApplication::applicationName() << ' ' << QCoreApplication::applicationVersion()
                            << Qt::endl;
        return 0;
    }
    if (!parser.positionalArguments().isEmpty())
        return fail("unexpected argument: " + parser.positionalArguments().first());

    if (!parser.isSet(address))
        return fail("--address needs an IP address");
    for (const QString &text : parser.values(address)) {
        const QHostAddress parsed(text);
        if (parsed.isNull())
            return fail("--address needs an IP address: " + text);
        if (options.addresses.contains(parsed))
            return fail("--address given twice: " + text);
        options.addresses << parsed;
    }
    bool ok = false;
    const uint portNumber = parser.value(port).toUInt(&ok);
    if (!ok || portNumber == 0 || portNumber > 65535)
        return fail("invalid port: " + parser.value(port));
    options.port = static_cast<quint16>(portNumber);
    options.logPath = parser.value(log);

    for (const QString &assignment : parser.values(set)) {
        const int equals = assignment.indexOf('=');
        if (equals <= 0)
            return fail("--set expects NAME=VALUE: " + assignment);
        options.settings.append({assignment.left(equals), assignment.mid(equals + 1)});
    }
    if (parser.isSet(agentVersion))
        options.settings.append({"KorvexVersion", parser.value(agentVersion)});

    Fault &fault = options.fault;
    if (parser.isSet(error)) {
        const QString value = parser.value(error);
        const int colon = value.indexOf(':');
        fault.error = true;
        fault.errorHasDescription = colon >= 0;
        if (fault.errorHasDescription)
            fault.errorDescription = value.mid(colon + 1);
        if (!parseCode(value.left(colon < 0 ? value.size() : colon), fault.errorCode))
            return fail("unknown status code: " + value);
    }
    if (parser.isSet(info)) {
        fault.info = true;
        fault.infoText = parser.value(info);
    }
    if (parser.isSet(reply)) {
        const QByteArray hex = parser.value(reply).remove(' ').toLatin1();
        fault.rawReply = true;
        fault.rawBytes = QByteArray::fromHex(hex);
        if (fault.rawBytes.toHex() != hex.toLower())
            return fail("--reply expects hexadecimal bytes: " + parser.value(reply));
    }
    if (parser.isSet(delay)) {
        fault.delayMs = parser.value(delay).toInt(&ok);
        if (!ok || fault.delayMs < 0)
            return fail("invalid delay: " + parser.value(delay));
    }
    if (parser.isSet(faultCount)) {
        fault.count = parser.value(faultCount).toInt(&ok);
        if (!ok || fault.count < 0)
            return fail("invalid fault count: " + parser.value(faultCount));
    }
    fault.silent = parser.isSet(silent);
    fault.split = parser.isSet(split);
    fault.close = parser.isSet(close);
    fault.garbage = parser.isSet(garbage);
    fault.all = parser.isSet(faultAll);

    if (parser.isSet(faultRate)) {
        if (fault.any())
            return fail("--fault-rate replaces the fixed faults; give one or the other");
        options.faultRate = parser.value(faultRate).toDouble(&ok);
        if (!ok)
            return fail("invalid fault rate: " + parser.value(faultRate));
        if (parser.isSet(seed)) {
            options.seed = parser.value(seed).toUInt(&ok);
            if (!ok)
                return fail("invalid seed: " + parser.value(seed));
        }
        options.faultKinds = parser.value(faultKinds);
        QString error;
        RandomFaults check;
        if (!check.configure(options.faultRate, options.seed, options.faultKinds, error))
            return fail(error);
    }
    return -1;
}
