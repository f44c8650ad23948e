#include "yield/ResultsFileParser.h"

#include <QDateTime>
#include <QList>

namespace yield {
namespace {

QString const kStartedPrefix = QStringLiteral("Tests Started: ");
QString const kSerialPrefix = QStringLiteral("Serial No: ");

// The state texts are padded to seven characters so that the names line up.
// A failing test also writes "FAIL!! - name" while the run goes on: one
// blank fewer, so the separator does not follow the seventh character and
// the line is not taken for a result.
bool parseResultLine(QString const& line, ResultLine& result) {
    // The shaft encoder test has no name: its line ends after the separator.
    if (line.size() < 10 || line.midRef(7, 3) != QLatin1String(" - ")) {
        return false;
    }
    QStringRef const state = line.leftRef(7);
    if (state == QLatin1String("PASSED ")) {
        result.outcome = Outcome::Passed;
    } else if (state == QLatin1String("FAIL!! ")) {
        result.outcome = Outcome::Failed;
    } else if (state == QLatin1String("Not Run")) {
        result.outcome = Outcome::NotRun;
    } else if (state == QLatin1String("*ERROR*")) {
        result.outcome = Outcome::Error;
    } else {
        return false;
    }
    result.name = line.mid(10);
    return true;
}

} // namespace

ParsedResultsFile parseResultsFile(QByteArray const& bytes) {
    ParsedResultsFile parsed;
    bool haveStarted = false;
    bool haveSerial = false;
    for (QByteArray const& raw : bytes.split('\n')) {
        QString line = QString::fromUtf8(raw);
        if (line.endsWith(QLatin1Char('\r'))) {
            line.chop(1);
        }
        if (!haveStarted && line.startsWith(kStartedPrefix)) {
            // strftime's "%H:%M %d/%m/%Y", the station's local time.
            QDateTime const time = QDateTime::fromString(line.mid(kStartedPrefix.size()).trimmed(),
                                                         QStringLiteral("HH:mm dd/MM/yyyy"));
            if (!time.isValid()) {
                return {};
            }
            parsed.started = time.toString(QStringLiteral("yyyy-MM-dd HH:mm"));
            haveStarted = true;
            continue;
        }
        if (!haveSerial && line.startsWith(kSerialPrefix)) {
            parsed.serial = line.mid(kSerialPrefix.size()).trimmed();
            if (parsed.serial.isEmpty()) {
                parsed.serial = kUnassignedSerial;
            }
            haveSerial = true;
            continue;
        }
        ResultLine result;
        if (haveStarted && haveSerial && parseResultLine(line, result)) {
            parsed.results.push_back(std::move(result));
        }
    }
    if (!haveStarted || !haveSerial) {
        return {};
    }
    parsed.readable = true;
    return parsed;
}

char outcomeLetter(Outcome outcome) {
    switch (outcome) {
    case Outcome::Passed:
        return 'P';
    case Outcome::Failed:
        return 'F';
    case Outcome::NotRun:
        return 'N';
    case Outcome::Error:
        break;
    }
    return 'E';
}

bool outcomeFromLetter(char letter, Outcome& outcome) {
    switch (letter) {
    case 'P':
        outcome = Outcome::Passed;
        return true;
    case 'F':
        outcome = Outcome::Failed;
        return true;
    case 'N':
        outcome = Outcome::NotRun;
        return true;
    case 'E':
        outcome = Outcome::Error;
        return true;
    default:
        return false;
    }
}

} // namespace yield
