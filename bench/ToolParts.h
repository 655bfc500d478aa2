#pragma once
// The vantrel tool measured beside plain ddsc subscribers, on domain ids held through Domains:
//   record  the recorder against a plain subscriber in the same run (counts and CPU); the recordings
//           compared byte for byte with what was sent, replayed into a fresh domain, recorded again
//           and compared
//   rate    what "vantrel hz" and "vantrel bw" report against the rate and bytes actually sent
// Rows go to the table; a count or byte that differs throws after them, a process that does not answer
// or end in time at once.

namespace vantrel::bench {

void recordRows();
void rateRows();

// Peer roles the parts start ("vantrel-bench peer subscriber <small|large> <domain> <expected>").
int runToolPeer(int argc, char** argv);

}  // namespace vantrel::bench
