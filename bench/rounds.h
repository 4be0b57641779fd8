// SPDX-License-Identifier: MIT
// Contests in interleaved rounds. In each round the library's way, the limit of the machine and the plain form run back
// to back, so that a neighbour's load hits all of them; ratios are taken within a round and their median is told.
#pragma once

#include <functional>
#include <string>

namespace bench {

using Call = std::function<void()>;

struct Contest {
    Call ours;
    Call limit;
    Call plain = nullptr;   // none if empty
    Call before = nullptr;  // ahead of each call of ours, not timed
    int frames = 1;         // of one call; times are told per frame
};

// The bounds of a row; 0 is none. A row without bounds is a point of a plot.
struct Targets {
    double limit = 0;  // time of ours / time of the limit, at most
    double plain = 0;  // time of the plain form / time of ours, at least
};

// A row of the table. `make` is called when the row begins; what its contest needs lives as long as the row.
void addRow(const std::string& name, Targets targets, int rounds, std::function<Contest()> make);

// A row of one measured number, microseconds, with the most that its median may be; 0 is no bound.
void addNumber(const std::string& name, double most, int rounds, std::function<double()> measure);

// Every program of this folder defines its rows.
void addRows();

// Ends the row, or the program where there is none, with the text of what failed.
[[noreturn]] void fail(const std::string& text);

}  // namespace bench
