// SPDX-License-Identifier: ISC
// What the host framework's shared library exports.
#pragma once

#define VNK_API __attribute__((visibility("default")))
