// SPDX-License-Identifier: MIT
// Which video node this process shows the library. Linked into hx-capture-child only.
#pragma once

namespace hx {

/// From now on directories show `name` ("video2") as the only entry whose name begins with
/// "video". The text must stay valid.
void showOnlyNode(const char* name);

}  // namespace hx
