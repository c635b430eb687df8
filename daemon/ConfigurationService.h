// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"
#include "daemon/Configuration.h"
#include "daemon/Services.h"

namespace meridal {

struct Context;

/// Has the services do what the configuration says, at the start and whenever it is read again, and tells of it. Main queue
/// only.
class ConfigurationService {
public:
    /// The files and the services must outlive it.
    ConfigurationService(Context& context, ConfigurationFiles& files, const Services& services);

    /// Hands over what is in force. For the first time before the daemon starts: what is not to be recorded must not begin.
    void apply();
    /// Reads the files again and applies what can change while the daemon runs; the log says what cannot.
    void reload();
    /// For `status`: {"files": [...], "warnings": [{"file", "line", "text"}], "record": {...}, "check": {...}, "alerts": {...}}.
    Dictionary describe() const;

private:
    void logWarnings() const;

    Context& context_;
    ConfigurationFiles& files_;
    const Services services_;
    const Configuration started_; ///< what the program was started with
};

} // namespace meridal
