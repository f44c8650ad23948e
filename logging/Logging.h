#pragma once

namespace Calvento {

// Name of the one process-wide logger that the program and its platform
// library write their diagnostics through.
inline constexpr char const* kVyLogName = "VYLOG";

// Builds "VYLOG" with a standard-output sink (when toStdout) followed by a
// syslog sink tagged "<directory>vyapp", and registers it. Call once.
void initLogging(bool toStdout, char const* directory);

// Drops "VYLOG" and every other registered logger.
void ceaseLogging();

} // namespace Calvento
