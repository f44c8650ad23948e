#pragma once

// Reads one results file as the station writes it: the header (the start
// time and the board's serial number) and the result lines at its end, one
// per top-level test, "<seven-character state> - <test name>".

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <vector>

namespace yield {

enum class Outcome : std::uint8_t { Passed, Failed, NotRun, Error };

struct ResultLine {
    Outcome outcome;
    QString name;
};

struct ParsedResultsFile {
    // False when the header is missing: not a results file at all.
    bool readable = false;
    QString serial;
    // "yyyy-MM-dd HH:mm": sorts as time does.
    QString started;
    std::vector<ResultLine> results;
};

// The serial number the station records when the operator entered none;
// such runs never belong to one board.
inline QString const kUnassignedSerial = QStringLiteral("Unassigned");

ParsedResultsFile parseResultsFile(QByteArray const& bytes);

// The one-letter form the cache keeps for an outcome, and back.
char outcomeLetter(Outcome outcome);
bool outcomeFromLetter(char letter, Outcome& outcome);

} // namespace yield
