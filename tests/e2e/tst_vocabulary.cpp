// Keeps the README's command list equal to what the shell's help prints, so
// the documented vocabulary cannot drift from the command table.
#include <QtTest>

#include "shellrunner.h"

namespace {

const char Heading[] = "## Command vocabulary";
const char BlockStart[] = "```text";
const char BlockEnd[] = "```";
constexpr int HelpNameWidth = 20;
constexpr int ListNameWidth = 24;

struct HelpRow
{
    QString name;
    QString text;
};

// Rows of a help listing: the name padded to 20 columns, then the text.
QList<HelpRow> helpRows(const QByteArray &out)
{
    QList<HelpRow> rows;
    const QStringList lines = QString::fromUtf8(out).split('\n');
    const int title = lines.indexOf("---------------------------");
    for (int i = title + 1; title >= 0 && i < lines.size() && !lines.at(i).isEmpty(); ++i)
        rows.append({lines.at(i).left(HelpNameWidth).trimmed(), lines.at(i).mid(HelpNameWidth)});
    return rows;
}

QString listLine(const QString &command, const QString &text)
{
    return command.leftJustified(ListNameWidth - 1) + " " + text;
}

QStringList readmeBlock()
{
    QFile file(QStringLiteral(KORVEX_SOURCE_DIR) + "/README.md");
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    const int heading = lines.indexOf(Heading);
    const int start = heading < 0 ? -1 : lines.indexOf(BlockStart, heading);
    const int end = start < 0 ? -1 : lines.indexOf(BlockEnd, start + 1);
    if (end < 0)
        return {};
    return lines.mid(start + 1, end - start - 1);
}

} // namespace

class TestVocabulary : public QObject
{
    Q_OBJECT

private slots:
    void readmeListsEveryCommand();

private:
    ShellRunner m_runner;
};

void TestVocabulary::readmeListsEveryCommand()
{
    const ShellResult top = m_runner.run({"-c", "help"});
    QVERIFY(top.finished);
    const QList<HelpRow> words = helpRows(top.out);
    QVERIFY(words.size() > 1);

    QStringList expected;
    for (const HelpRow &word : words) {
        expected << listLine(word.name, word.text);
        const ShellResult sub = m_runner.run({"-c", "help " + word.name});
        QVERIFY(sub.finished);
        for (const HelpRow &row : helpRows(sub.out))
            expected << listLine(word.name + " " + row.name, row.text);
    }

    if (readmeBlock() == expected)
        return;
    // The list is too long for a failure message: leave it ready to paste.
    const QString path = QStringLiteral(KORVEX_BINARY_DIR) + "/vocabulary.md";
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Text))
        file.write((QStringList{BlockStart} + expected + QStringList{BlockEnd, ""}).join('\n').toUtf8());
    QFAIL(qPrintable(QString("README.md differs from the help under \"%1\"; the expected block is in %2")
                         .arg(Heading, path)));
}

QTEST_GUILESS_MAIN(TestVocabulary)
#include "tst_vocabulary.moc"
