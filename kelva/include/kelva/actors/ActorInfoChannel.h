#pragma once
// The kelva_intern::ActorInfo topic of one session: publishes the descriptions of the session's own actors
// (keyed by actor id, transient-local, so a monitor that joins later sees who is there), withdraws a
// description when its actor is released, and reads the descriptions of peers to notice a peer that speaks
// another interface version of a module used here (logged once per peer session and module, at warn level).
#include <dds/dds.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "kelva/Export.h"
#include "kelva/actors/ActorInfo.h"

namespace kelva::actors {

class KELVA_EXPORT ActorInfoChannel {
public:
    // Creates the topic, the writer and the reader on `participant`; `sessionId` marks this session's own
    // descriptions, which the version check skips. Failures are logged; the channel then does nothing.
    ActorInfoChannel(dds_entity_t participant, std::string sessionId);
    ~ActorInfoChannel();
    ActorInfoChannel(const ActorInfoChannel&) = delete;
    ActorInfoChannel& operator=(const ActorInfoChannel&) = delete;

    void publish(const ActorInfo& info);
    // Disposes and unregisters the description of `actorId`: late joiners no longer see it.
    void withdraw(const std::string& actorId);
    // The interface version of `moduleName` used by this session's actors (checked against peers).
    void noteLocalVersion(const std::string& moduleName, const std::string& version);

private:
    static void onDataAvailable(dds_entity_t reader, void* arg);
    void takePeers(dds_entity_t reader);
    void checkLocked(const std::string& peerSession, const std::string& peerActor, const std::string& module,
                     const std::string& version);

    struct Peer {
        std::string sessionId, moduleName, version;
    };

    std::string m_sessionId;
    dds_entity_t m_publisher = 0;
    dds_entity_t m_writer = 0;
    dds_entity_t m_reader = 0;

    std::mutex m_mutex;  // guards the maps below (the reader's listener runs on a DDS thread)
    std::map<std::string, std::string> m_localVersions;  // module -> version
    std::map<std::string, Peer> m_peers;                 // peer actor id -> what it speaks
    std::set<std::pair<std::string, std::string>> m_warned;  // (peer session, module) already reported
};

}  // namespace kelva::actors
