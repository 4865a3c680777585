// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Kelta {
namespace host {

extern const char* const kKeyHelp;
extern const char* const kKeyRotateHelp;
extern const char* const kKeyVerifyHelp;
extern const char* const kKeyRecoverHelp;

}  // namespace host
}  // namespace Kelta
