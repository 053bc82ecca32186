// The monitor as it has to behave: its states, gates, lines, events and exit status.
#pragma once

#include "policies.h"

// Holds a whole run against the model. The journal tells what the run met - signals, the answers of the calls, the values
// of the policy - and the model, what it has to do about that: each call and line, in order.
//   ending  how the run ended, "exit 0"
// Tells the first difference; empty: there is none.
std::string differs(const Journal& read, const std::string& ending, const Given& given);
