// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>

namespace Kelta {
namespace host {

/// Makes a folder for the library's log, for the owner alone, and puts a log.properties into it that leaves out what
/// the library logs of every step of the cipher. With SYNCPAIRTRACE set that file is taken away, so that everything is
/// traced. One that the user changed stays. Throws filesystem_error.
void prepareLogFolder(const boost::filesystem::path& folder);

/// Makes a folder, for the owner alone, with those above it if need be. Throws filesystem_error.
void createForOwner(const boost::filesystem::path& folder);

}  // namespace host
}  // namespace Kelta
