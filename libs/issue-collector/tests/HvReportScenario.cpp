// Builds one report with the environment it is given. Writes every log line it caused,
// "<level>\t<message>", into the file argv[1] and the archive path into the file argv[2].

#include "HvIssueCollector.h"
#include "HvLogCapture.h"

#include <fstream>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: issue-collector-scenario LOG-LINES-FILE RESULT-FILE\n";
        return 2;
    }
    Hv::Test::LogCapture capture;
    const boost::filesystem::path archive = Hv::IssueCollector::prepareReport();

    std::ofstream lines(argv[1]);
    for (const Hv::Test::LogLine& line : capture.lines())
        lines << line.level << '\t' << line.message << '\n';
    std::ofstream result(argv[2]);
    result << archive.string();
    return lines && result ? 0 : 1;
}
