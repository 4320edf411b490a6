#pragma once

namespace VUKO::VUKOCrond::Service {

/// Makes the process fit for a service, whoever started it: descriptors 0 to 2 are open (else a timer or a file would
/// come to lie there, and jobs inherit those three), and the working directory keeps no file system busy.
void SettleProcess();

/// Blocks the signals that are read from a descriptor, and gives them their default disposition: one that was ignored
/// when the service was started would never be seen, and jobs would go on ignoring it. SIGPIPE is blocked, too: a
/// reader of our messages that went away must not end the service.
///
/// A child forked by the platform has no signal blocked.
void BlockSignals();

/// Opens the system log. Messages are written to standard error as well, unless that is the journal, which gets them
/// from the system log already.
void OpenSystemLog();

} // namespace VUKO::VUKOCrond::Service
