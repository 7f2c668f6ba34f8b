// SPDX-License-Identifier: Apache-2.0
// Empty: the program it belongs to compiles the headers that all unit tests share, without a definition of its own, which
// the others may then add.
