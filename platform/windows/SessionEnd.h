/// The end of the user's session: logging off or shutdown. Included only by the Windows files.
#pragma once

namespace platform {

/// Makes the end of the session a request to stop. Windows reports it to console programs only if
/// they are services, and otherwise to windows: this one is hidden. Call it once: its thread lives
/// as long as the process.
void WatchSessionEnd();

}  // namespace platform
