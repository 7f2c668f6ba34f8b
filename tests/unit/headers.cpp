// SPDX-License-Identifier: Apache-2.0
// Empty: its program compiles the headers that all unit tests share, without a definition of its own, which others may
// then add.
