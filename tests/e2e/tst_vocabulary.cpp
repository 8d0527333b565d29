// Keeps the README's command list equal to what the shell's help prints, so
// the documented vocabulary and every help text are checked together.
#include <QtTest>

#include "shellrunner.h"

class TestVocabulary : public QObject
{
    Q_OBJECT

private slots:
    void readmeListsEveryCommand();
};

void TestVocabulary::readmeListsEveryCommand()
{
    ShellRunner runner;
    // Rows of a help listing: the name padded to 20 columns, then the text.
    const auto rows = [&runner](const QString &command) {
        const QStringList lines = QString::fromUtf8(runner.run({"-c", command}).out).split('\n');
        const int title = lines.indexOf("---------------------------");
        QList<QPair<QString, QString>> rows;
        for (int i = title + 1; title >= 0 && i < lines.size() && !lines.at(i).isEmpty(); ++i)
            rows.append({lines.at(i).left(20).trimmed(), lines.at(i).mid(20)});
        return rows;
    };
    QStringList expected;
    for (const auto &verb : rows("help")) {
        expected << verb.first.leftJustified(23) + " " + verb.second;
        for (const auto &sub : rows("help " + verb.first))
            expected << (verb.first + " " + sub.first).leftJustified(23) + " " + sub.second;
    }
    QVERIFY(expected.size() > 50);

    QFile file(QStringLiteral(KORVEX_SOURCE_DIR "/README.md"));
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    const int start = lines.indexOf("```text", lines.indexOf("## Command vocabulary"));
    QCOMPARE(lines.mid(start + 1, lines.indexOf("```", start + 1) - start - 1), expected);
}

QTEST_GUILESS_MAIN(TestVocabulary)
#include "tst_vocabulary.moc"
