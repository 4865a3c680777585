// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/exception.hpp>
#include <functional>

namespace Kelta {
namespace test {

/// What the system refused in `action`; no error when all went well.
inline boost::system::error_code errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const boost::filesystem::filesystem_error& error) {
    return error.code();
  }
  return {};
}

}  // namespace test
}  // namespace Kelta
