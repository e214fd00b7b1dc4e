// SPDX-License-Identifier: Apache-2.0
// The framework's connection to the configuration database, and the scoped read session on it.

#ifndef QXCONFD_CONFD_INTERFACE_H
#define QXCONFD_CONFD_INTERFACE_H

#include <stdexcept>

#include "../confd_cdb.h"

// The connection object. One per process, owned by the framework, and handed to every handler
// before any of its operations is called.
class QxConfdInterface {
public:
    QxConfdInterface() = default;
    QxConfdInterface(const QxConfdInterface&) = delete;
    QxConfdInterface& operator=(const QxConfdInterface&) = delete;
    virtual ~QxConfdInterface() = default;

    // Whether the connection is up: registered, and its initial load handed to the handlers or
    // about to be.
    virtual bool IsConnected() const = 0;

    // The socket for maapi_set_elem, good inside a data provider's callbacks. Never fails.
    virtual int MaapiSocket() const = 0;

    // For QxConfdCdbSessionBase only. Opens a read session and returns its socket; throws
    // QxConfdSessionError, which says why, when the database can't be read.
    virtual int OpenCdbSession(cdb_db_type database, bool subscriptionLock) = 0;
    virtual void CloseCdbSession(int socket) noexcept = 0;
};

// A read session could not be opened.
class QxConfdSessionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A read session that lasts as long as the object.
class QxConfdCdbSessionBase {
public:
    // Opens the session on the given datastore. `subscriptionLock` asks that a session opened while
    // a change set is handled reads that commit's datastore, whatever is committed meanwhile.
    QxConfdCdbSessionBase(QxConfdInterface& confd, cdb_db_type database, bool subscriptionLock)
        : m_confd(confd), m_socket(confd.OpenCdbSession(database, subscriptionLock))
    {
    }
    QxConfdCdbSessionBase(const QxConfdCdbSessionBase&) = delete;
    QxConfdCdbSessionBase& operator=(const QxConfdCdbSessionBase&) = delete;
    virtual ~QxConfdCdbSessionBase() { m_confd.CloseCdbSession(m_socket); }

    // The session's socket, for the cdb_get family.
    int Socket() const { return m_socket; }

private:
    QxConfdInterface& m_confd;
    int m_socket;
};

#endif
