/// The end of the user's session, for a program with windows. The plug-in does not use it.
#pragma once

namespace platform {

/// Makes logging off and shutdown a request to stop, as `WatchStopSignals` does for a program
/// without windows. Windows reports both only to the windows of a program that has some; on POSIX
/// they are signals, and this does nothing. Call it once: its thread lives as long as the process.
void WatchSessionEnd();

}  // namespace platform
