// SPDX-License-Identifier: Apache-2.0
// How patient the client is. The defaults suit people and networks; tests make everything quick.
#pragma once

#include <chrono>

namespace nfstdm::rpc {

struct Timing {
    using Duration = std::chrono::steady_clock::duration;

    // How often limits are looked at; every other duration is exact to this much.
    Duration tick = std::chrono::milliseconds(100);

    // An address that has not taken the connection by then gets the host's next one tried beside it (RFC 8305 section
    // 5, the recommended Connection Attempt Delay).
    Duration stagger = std::chrono::milliseconds(250);

    // When none has taken it by then, after the last was begun with, all are tried again later.
    Duration connect = std::chrono::seconds(5);

    // A connection with requests outstanding on which nothing moves for this long is asked whether anyone is there ...
    Duration probe = std::chrono::milliseconds(2500);
    // ... and is left when nothing moved for this long, if requests can go another way ...
    Duration silence = std::chrono::seconds(5);
    // ... or if they can not: a new connection to the same place then seldom helps, but a lost one would hang for long.
    Duration silence_alone = std::chrono::seconds(20);
    // Each time in a row that a connection is left for silence the last two are doubled, so that a server which is
    // merely slow gets its answer through; at most this many times over.
    unsigned patience_maximum = 8;
    // A connection that is not the only one is never given longer than this, whatever was doubled.
    Duration silence_most = std::chrono::hours(1);

    // Between attempts to connect; doubled from attempt to attempt.
    Duration backoff_first = std::chrono::milliseconds(100);
    Duration backoff_most = std::chrono::seconds(3);

    // A server that answers nothing for this long is reported.
    Duration notice = std::chrono::seconds(10);

    // After the time of a request was up, the server has so long to show that it is there.
    Duration grace = std::chrono::milliseconds(500);

    // A bulk request that is answered by then was answered promptly: more of them may be outstanding at once.
    Duration prompt = std::chrono::seconds(1);

    // A portmapper that has not taken the connection by then may never do so. The first repetition of a lost request to
    // connect comes before it.
    Duration silence_of_portmapper = std::chrono::milliseconds(1500);

    // Between repetitions of a request that the server was not ready for (NFS3ERR_JUKEBOX); doubled each time.
    Duration jukebox_first = std::chrono::milliseconds(100);
    Duration jukebox_most = std::chrono::seconds(5);
    // A server that does nothing but put off for this long is reported.
    Duration jukebox_notice = std::chrono::milliseconds(1400);

    // For requests that may take so long altogether; 0 = for ever. A path that fell silent is left early enough for the
    // others to answer in time.
    Timing within(Duration limit) const;
};

}  // namespace nfstdm::rpc
