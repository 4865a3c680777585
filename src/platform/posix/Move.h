// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>

namespace Kelta {
namespace platform {

/// Renames without replacing anything. 0 or an error number; EEXIST: something stands under `to` already.
int renameWithoutReplacing(const boost::filesystem::path& from, const boost::filesystem::path& to);

}  // namespace platform
}  // namespace Kelta
