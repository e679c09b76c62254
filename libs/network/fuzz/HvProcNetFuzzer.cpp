// Parses arbitrary text as a kernel socket table, whole and in pieces as read() may cut them (the
// first byte sets the piece size and the kind): both must give the same rows, each found by its
// inode where it has one, and every row must format within its line.

#include "HvProcNetTcp.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

using namespace Hv::Network;

static log4cplus::tstring lines(const char* text, std::size_t size, std::size_t step, Protocol protocol)
{
    ProcNetTcp::Table table;
    ProcNetTcp::Parser parser(table, protocol, "fuzz");
    for (std::size_t from = 0; from < size; from += step)
        parser.add(text + from, std::min(step, size - from));
    parser.finish();
    table.index();
    log4cplus::tostringstream result;
    for (std::size_t i = 0; i < table.rows().size(); ++i) {
        const ProcNetTcp::Row& row = table.rows()[i];
        if (row.inode != 0 && table.find(row.inode) != i)
            std::abort();
        result << ProcNetTcp::record(0, row) << LOG4CPLUS_TEXT('\n');
    }
    return result.str();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const char* const text = reinterpret_cast<const char*>(data + 1);
    const Protocol protocol = size > 0 && data[0] & 0x80 ? Protocol::Udp : Protocol::Tcp;
    if (size > 0 && lines(text, size - 1, size, protocol) != lines(text, size - 1, 1 + data[0] % 16, protocol))
        std::abort();
    return 0;
}
