/* SPDX-License-Identifier: Apache-2.0 */
/* Pins the records of the storage interface: offsets and sizes, compiled as C. */
#include <stddef.h>

#include "include/tdm.h"

#define AT(type, field, offset) _Static_assert(offsetof(type, field) == (offset), #type "." #field)
#define SIZE(type, size) _Static_assert(sizeof(type) == (size), #type)

AT(TdmIoRequest, status, 4);
AT(TdmIoRequest, cleared, 12);
AT(TdmIoRequest, operation, 16);
AT(TdmIoRequest, flags, 18);
AT(TdmIoRequest, file, 24);
AT(TdmIoRequest, offset, 32);
AT(TdmIoRequest, buffer, 40);
AT(TdmIoRequest, count, 48);
SIZE(TdmIoRequest, 256);
AT(TdmFileInfo, size, 8);
AT(TdmFileInfo, permitted, 24);
AT(TdmFileInfo, mirror_sides, 26);
AT(TdmFileInfo, reserved, 28);
SIZE(TdmFileInfo, 32);
AT(TdmAttributes, permissions, 4);
AT(TdmAttributes, links, 8);
AT(TdmAttributes, uid, 12);
AT(TdmAttributes, gid, 16);
AT(TdmAttributes, size, 24);
AT(TdmAttributes, used, 32);
AT(TdmAttributes, server, 40);
AT(TdmAttributes, handle_digest, 48);
AT(TdmAttributes, file_system_id, 56);
AT(TdmAttributes, file_id, 64);
AT(TdmAttributes, access_seconds, 80);
AT(TdmAttributes, access_nanoseconds, 88);
AT(TdmAttributes, modification_seconds, 104);
AT(TdmAttributes, modification_nanoseconds, 112);
AT(TdmAttributes, change_seconds, 128);
AT(TdmAttributes, change_nanoseconds, 136);
SIZE(TdmAttributes, 152);
AT(TdmSetAttributes, permissions, 12);
SIZE(TdmSetAttributes, 16);
AT(TdmDirEntry, cookie, 8);
AT(TdmDirEntry, type, 16);
AT(TdmDirEntry, name, 20);
SIZE(TdmDirEntry, 536);
AT(TdmReaddirReply, entries, 8);
AT(TdmReaddirReply, end_of_directory, 12);
SIZE(TdmReaddirReply, 16);
AT(TdmFsInfo, read_maximum, 152);
AT(TdmFsInfo, read_preferred, 160);
AT(TdmFsInfo, read_multiple, 168);
AT(TdmFsInfo, write_maximum, 176);
AT(TdmFsInfo, write_preferred, 184);
AT(TdmFsInfo, write_multiple, 192);
AT(TdmFsInfo, readdir_preferred, 200);
AT(TdmFsInfo, readdir_entries, 208);
SIZE(TdmFsInfo, 216);
AT(TdmFsStat, total_bytes, 152);
AT(TdmFsStat, volatility_seconds, 200);
SIZE(TdmFsStat, 208);
