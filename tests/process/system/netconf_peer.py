#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Manages the switch with ncclient, as a controller would, and checks every answer.

    netconf_peer.py relay RELAY                 through the relay's standard input and output
    netconf_peer.py ssh PORT USER KEY           through an OpenSSH server's subsystem "netconf"

Ends with 0 when all holds; else the traceback says what did not. Expects the switch to run with the
configuration that the scenarios begin with. Debian's own python3: that is where ncclient is.
"""

import copy
import os
import socket
import subprocess
import sys

from lxml import etree
from ncclient import manager
from ncclient.operations.rpc import RPCError
from ncclient.transport import SSHSession
from ncclient.transport import ssh as ssh_transport

NC = "urn:ietf:params:xml:ns:netconf:base:1.0"
CONFIG = "urn:switch:yang:switch-config"
SFLOW = "urn:switch:yang:switch-oam-sflow"
MONITORING = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"
DEFAULT = "urn:ietf:params:xml:ns:netconf:default:1.0"

# How often the library looks for what is to be sent: a tenth of a second, by itself.
ssh_transport.TICK = 0.005


class SocketChannel:
    """What ncclient's session needs of an SSH channel, on a socket."""

    def __init__(self, end):
        self.end = end

    def fileno(self):
        return self.end.fileno()

    def recv(self, size):
        return self.end.recv(size)

    def send(self, data):
        return self.end.send(data)

    def send_ready(self):
        return True

    def close(self):
        self.end.close()


class RelaySession(SSHSession):
    """ncclient's session over the program that OpenSSH would start."""

    def connect(self, relay):
        ours, theirs = socket.socketpair()
        ssh = {**os.environ, "SSH_CONNECTION": "127.0.0.1 50022 127.0.0.1 830"}
        self.relay = subprocess.Popen([relay], stdin=theirs, stdout=theirs, env=ssh)
        theirs.close()
        self._channel = SocketChannel(ours)
        self._connected = True
        self._post_connect()

    def close(self):
        self._closing.set()
        self._connected = False
        if self._channel:
            self._channel.end.shutdown(socket.SHUT_WR)


def connect_relay(relay):
    handler = manager.make_device_handler(None)
    session = RelaySession(handler)
    session.connect(relay)
    return manager.Manager(session, handler, timeout=30)


def connect_ssh(port, user, key):
    return manager.connect(host="127.0.0.1", port=int(port), username=user, key_filename=key, hostkey_verify=False,
                           allow_agent=False, look_for_keys=False, timeout=30)


def tree(content):
    return f'<config xmlns="{CONFIG}"><oam xmlns="{SFLOW}"><sflow>{content}</sflow></oam></config>'


def sflow(content):
    return f'<nc:config xmlns:nc="{NC}">{tree(content)}</nc:config>'


def rate_of(connection, source, interface):
    subtree = tree(f"<interface><name>{interface}</name></interface>")
    data = connection.get_config(source=source, filter=("subtree", subtree)).data
    return [leaf.text for leaf in data.iter(f"{{{SFLOW}}}sampling-rate")]


def refused(tag, call, *arguments, **named):
    try:
        call(*arguments, **named)
    except RPCError as error:
        assert error.tag == tag, f"{error.tag} instead of {tag}: {error}"
        return error
    raise AssertionError(f"not refused with {tag}: {call}")


def check_greeting(connection):
    capabilities = list(connection.server_capabilities)
    for wanted in ("urn:ietf:params:netconf:base:1.0", "urn:ietf:params:netconf:base:1.1",
                   "urn:ietf:params:netconf:capability:candidate:1.0"):
        assert wanted in capabilities, f"{wanted} is not among {capabilities}"
    assert int(connection.session_id) > 0


def check_commit(connection):
    with connection.locked("candidate"):
        connection.edit_config(target="candidate", config=sflow(
            "<interface><name>eth1</name><sampling-rate>4711</sampling-rate></interface>"))
        connection.validate(source="candidate")
        assert rate_of(connection, "running", "eth1") == ["1024"]
        assert rate_of(connection, "candidate", "eth1") == ["4711"]
        connection.commit()
    assert rate_of(connection, "running", "eth1") == ["4711"]
    assert rate_of(connection, "running", "nowhere") == []


def check_errors(connection, other):
    error = refused("invalid-value", connection.edit_config, target="candidate", config=sflow(
        "<interface><name>eth1</name><sampling-rate>0</sampling-rate></interface>"))
    assert "sampling-rate" in error.path, error.path
    refused("unknown-element", connection.edit_config, target="candidate", config=sflow("<no-such-thing/>"))
    refused("data-missing", connection.edit_config, target="candidate", config=sflow(
        f'<collector xmlns:nc="{NC}" nc:operation="delete"><name>nobody</name></collector>'))
    with connection.locked("candidate"):
        refused("lock-denied", other.lock, "candidate")
        refused("in-use", other.commit)
    connection.edit_config(target="candidate", config=sflow(
        "<interface><name>eth1</name><counter-sampling-collector><name>nobody</name></counter-sampling-collector>"
        "</interface>"), test_option="set")
    refused("data-missing", connection.commit)
    connection.discard_changes()
    assert rate_of(connection, "candidate", "eth1") == ["4711"]


def check_events(subscriber, connection):
    events = "urn:ietf:params:xml:ns:yang:ietf-netconf-notifications"
    subscriber.create_subscription(filter=("subtree", f'<netconf-config-change xmlns="{events}"/>'),
                                   start_time="2026-01-01T00:00:00Z")
    seen = []
    while "replayComplete" not in (seen[-1] if seen else ""):
        notification = subscriber.take_notification(timeout=30)
        assert notification is not None, seen
        seen.append(notification.notification_xml)
    assert "sampling-rate</target>" in seen[-2], seen
    refused("in-use", subscriber.create_subscription)
    # Requests go on in a session with a subscription, and its events come whoever commits.
    assert rate_of(subscriber, "running", "eth1") == ["27"]
    connection.edit_config(target="candidate", config=sflow("<collector><name>c9</name><ip>192.0.2.9</ip></collector>"))
    connection.commit()
    change = subscriber.take_notification(timeout=30)
    assert change is not None
    text = change.notification_xml
    assert "name='c9']</target><operation>create</operation>" in text, text
    assert f"<session-id>{connection.session_id}</session-id>" in text, text
    assert "<source-host>127.0.0.1</source-host>" in text, text
    connection.edit_config(target="candidate", config=sflow(
        f'<collector xmlns:nc="{NC}" nc:operation="delete"><name>c9</name></collector>'))
    connection.commit()
    assert "<operation>delete</operation>" in subscriber.take_notification(timeout=30).notification_xml


def check_state(connection):
    data = connection.get(filter=("subtree", '<state xmlns="urn:switch:yang:switch-state"/>')).data
    text = etree.tostring(data).decode()
    assert "198.51.100.1" in text, text


def check_history(connection):
    """The number of a commit, which no client trips over, and going back by our module's operations."""
    ns = "urn:switch:yang:switch-history"

    def ask(operation, content):
        return connection.dispatch(etree.fromstring(f'<{operation} xmlns="{ns}">{content}</{operation}>'))

    def number_of(reply):
        assert reply.ok, reply
        return etree.fromstring(str(reply).encode()).get(f"{{{ns}}}commit")

    def commit_rate(rate):
        connection.edit_config(target="candidate", config=sflow(
            f"<interface><name>eth1</name><sampling-rate>{rate}</sampling-rate></interface>"))
        return int(number_of(connection.commit()))

    first = commit_rate(21)
    ask("checkpoint", "<name>before-22</name>")
    assert commit_rate(22) == first + 1
    assert number_of(connection.commit()) is None
    changes = etree.fromstring(str(ask("commit-changes", f"<commit>{first + 1}</commit>")).encode())
    for part, rate in (("before", "21"), ("after", "22")):
        rates = [leaf.text for leaf in changes.find(f"{{{ns}}}{part}").iter(f"{{{SFLOW}}}sampling-rate")]
        assert rates == [rate], rates
    ask("rollback", "<checkpoint>before-22</checkpoint>")
    assert rate_of(connection, "candidate", "eth1") == ["21"]
    assert rate_of(connection, "running", "eth1") == ["22"]
    assert int(number_of(connection.commit())) == first + 2
    assert rate_of(connection, "running", "eth1") == ["21"]
    refused("invalid-value", ask, "rollback", "<back>4294967295</back>")
    refused("data-missing", ask, "rollback", "<checkpoint>never-set</checkpoint>")
    ask("delete-checkpoint", "<name>before-22</name>")
    commit_rate(23)


def check_confirmed(connection, other):
    """Confirmed commits: cancelled with the token by another session, and confirmed by their own."""
    def edit_rate(rate):
        connection.edit_config(target="candidate", config=sflow(
            f"<interface><name>eth1</name><sampling-rate>{rate}</sampling-rate></interface>"))

    assert ":confirmed-commit" in connection.server_capabilities
    before = rate_of(connection, "running", "eth1")
    edit_rate(24)
    connection.commit(confirmed=True, timeout="3600", persist="token")
    refused("in-use", other.commit)
    refused("lock-denied", other.lock, "running")
    refused("invalid-value", other.cancel_commit, persist_id="another")
    refused("invalid-value", connection.cancel_commit)
    other.commit(confirmed=True, timeout="7200", persist_id="token")
    other.cancel_commit(persist_id="token")
    assert rate_of(connection, "running", "eth1") == before
    refused("operation-failed", other.cancel_commit)
    edit_rate(25)
    connection.commit(confirmed=True, timeout="3600")
    refused("in-use", other.cancel_commit)
    connection.commit()
    refused("operation-failed", connection.cancel_commit)
    assert rate_of(connection, "running", "eth1") == ["25"]
def check_private_candidate(connection, other):
    """One session's own candidate beside the shared one, and what both have changed."""
    ns = "urn:switch:yang:switch-private-candidate"
    assert any(each.startswith(ns + "?") for each in connection.server_capabilities)

    def ask(operation, content=""):
        return connection.dispatch(etree.fromstring(f'<{operation} xmlns="{ns}">{content}</{operation}>'))

    def set_rate(session, rate):
        session.edit_config(target="candidate", config=sflow(
            f"<interface><name>eth1</name><sampling-rate>{rate}</sampling-rate></interface>"))

    ask("open-private-candidate")
    with connection.locked("candidate"):
        set_rate(connection, 26)
        assert rate_of(connection, "candidate", "eth1") == ["26"]
        assert rate_of(other, "candidate", "eth1") == ["25"]
        set_rate(other, 27)
        other.commit()
        assert rate_of(connection, "candidate", "eth1") == ["26"]
        error = refused("operation-failed", connection.commit)
        assert "eth1" in error.path and "sampling-rate" in error.path, error.path
        assert "eth1" in error.message and "update" in error.message, error.message
        refused("operation-failed", ask, "update-candidate")
        # The library raises warnings, too.
        warning = refused("operation-failed", ask, "update-candidate", "<on-conflict>running</on-conflict>")
        assert warning.severity == "warning", warning
        assert rate_of(connection, "candidate", "eth1") == ["27"]
        connection.commit()
    ask("close-private-candidate")
    refused("operation-failed", ask, "close-private-candidate")


def check_whole_configurations(connection):
    before = rate_of(connection, "running", "eth1")
    connection.copy_config(source="running", target="candidate")
    content = connection.get_config(source="running").data_ele[0]
    config = etree.Element(f"{{{NC}}}config")
    config.append(content)
    source = etree.Element(f"{{{NC}}}source")
    source.append(copy.deepcopy(config))
    connection.validate(source=config)
    connection.copy_config(source=source, target="candidate")
    assert rate_of(connection, "candidate", "eth1") == before
    connection.discard_changes()
    refused("unknown-element", connection.delete_config, target="candidate")
    refused("data-missing", connection.edit_config, target="candidate", error_option="continue-on-error", config=sflow(
        f'<collector xmlns:nc="{NC}" nc:operation="delete"><name>nobody</name></collector>'
        "<interface><name>eth1</name><sampling-rate>4712</sampling-rate></interface>"))
    assert rate_of(connection, "candidate", "eth1") == ["4712"]
    connection.discard_changes()


def check_datastores(connection):
    """get-data and edit-data, which the library has no call for."""
    nmda = "urn:ietf:params:xml:ns:yang:ietf-netconf-nmda"
    origin = "urn:ietf:params:xml:ns:yang:ietf-origin"

    def ask(operation, datastore, content):
        return connection.dispatch(etree.fromstring(
            f'<{operation} xmlns="{nmda}" xmlns:ds="urn:ietf:params:xml:ns:yang:ietf-datastores">'
            f"<datastore>ds:{datastore}</datastore>{content}</{operation}>"))

    def rates(datastore, more=""):
        subtree = tree("<interface><name>eth1</name></interface>")
        reply = ask("get-data", datastore, f"<subtree-filter>{subtree}</subtree-filter>{more}")
        return list(etree.fromstring(str(reply).encode()).iter(f"{{{SFLOW}}}sampling-rate"))

    assert [leaf.text for leaf in rates("running")] == ["27"]
    edit = tree("<interface><name>eth1</name><sampling-rate>24</sampling-rate></interface>")
    ask("edit-data", "candidate", f"<config>{edit}</config>")
    assert [leaf.text for leaf in rates("candidate")] == ["24"]
    assert [leaf.text for leaf in rates("operational", "<with-origin/>")] == ["27"]
    connection.discard_changes()
    state = ask("get-data", "operational", "<config-filter>true</config-filter><with-origin/>")
    tagged = [leaf for leaf in etree.fromstring(str(state).encode()).iter()
              if leaf.get(f"{{{origin}}}origin") == "or:default"]
    assert tagged, state
    refused("invalid-value", ask, "get-data", "running", "<with-origin/>")
    refused("invalid-value", ask, "edit-data", "running", "<config/>")


def check_defaults(connection):
    data = connection.get_config(source="running", with_defaults="report-all-tagged").data_ele
    tagged = [leaf for leaf in data.iter() if leaf.get(f"{{{DEFAULT}}}default") == "true"]
    assert tagged, etree.tostring(data)


def check_monitoring(connection, transport):
    data = connection.get(filter=("subtree", f'<netconf-state xmlns="{MONITORING}"/>')).data_ele

    def texts(name):
        return [leaf.text for leaf in data.iter(f"{{{MONITORING}}}{name}")]

    assert sorted(texts("capability")) == sorted(connection.server_capabilities), texts("capability")
    session = [each for each in data.iter(f"{{{MONITORING}}}session")
               if each.findtext(f"{{{MONITORING}}}session-id") == connection.session_id]
    assert len(session) == 1, etree.tostring(data)
    assert session[0].findtext(f"{{{MONITORING}}}transport") == transport, etree.tostring(session[0])
    assert session[0].findtext(f"{{{MONITORING}}}source-host") == "127.0.0.1", etree.tostring(session[0])
    for name in texts("identifier"):
        assert f"module {name}" in connection.get_schema(name).data, name


def main():
    def connect():
        return connect_relay(sys.argv[2]) if sys.argv[1] == "relay" else connect_ssh(*sys.argv[2:5])

    connection, other = connect(), connect()
    check_greeting(connection)
    check_commit(connection)
    check_errors(connection, other)
    check_state(connection)
    check_history(connection)
    check_confirmed(connection, other)
    check_private_candidate(connection, other)
    check_whole_configurations(connection)
    check_datastores(connection)
    check_defaults(connection)
    check_monitoring(connection, "netconf-ssh")
    check_events(other, connection)
    connection.kill_session(other.session_id)
    other.timeout = 5  # the library may miss the end of a transport that goes while it sends
    try:
        other.commit()
        raise AssertionError("a killed session still answers")
    except (RPCError, AssertionError):
        raise
    except Exception as gone:  # ncclient has several errors for a session that is gone
        print(f"killed: {type(gone).__name__}")
    connection.close_session()


if __name__ == "__main__":
    main()
