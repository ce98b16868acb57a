"""The harness of the cluster's tests: real members that do what a cluster does when they are killed, frozen or started."""

import pytest

from members import DATABASE, Members, Unanswered, relay, standalone

SCHEMA = {"name": DATABASE, "version": "1.0.0", "tables": {
    "Plans": {"columns": {"Id": {"type": "integer", "mutable": False}, "Name": {"type": "string"}},
              "indexes": [["Id"]], "isRoot": True}}}


def insert(number):
    return {"op": "insert", "table": "Plans", "row": {"Id": number, "Name": f"plan {number}"}}


def numbers(server):
    return [row["Id"] for row in server.dump("Plans")]


@pytest.fixture
def members(house):
    return Members(house, SCHEMA)


def test_what_one_member_commits_all_of_them_hold(members):
    for number, member in enumerate(members):
        member.commit(insert(number))
    assert [row["Id"] for row in members.wait_equal("Plans")["Plans"]] == [0, 1, 2]
    assert len({member.database()["cid"] for member in members}) == 1


def test_a_killed_leader_is_followed_by_another_that_has_what_was_committed(members):
    first = members.leader()
    first.commit(insert(1))
    first.kill()
    second = members.leader()
    assert second is not first and second.answers
    second.commit(insert(2))
    first.start()
    first.wait_connected()
    assert [row["Id"] for row in members.wait_equal("Plans")["Plans"]] == [1, 2]


def test_a_frozen_leader_is_followed_by_another_and_takes_part_again_once_thawed(members):
    first = members.leader()
    first.freeze()
    second = members.leader()
    assert second is not first
    second.commit(insert(1))
    first.thaw()
    first.wait_connected()
    members.wait_equal("Plans")
    assert numbers(first) == [1] and members.leader() is not first


def test_without_a_majority_nothing_is_answered_and_it_is_applied_later(members):
    select = {"op": "select", "table": "Plans", "where": []}
    alone = members.leader()
    for follower in members.followers():
        follower.freeze()
    with pytest.raises(Unanswered):
        alone.transact(insert(1), deadline=1)
    alone.wait_disconnected()
    with pytest.raises(Unanswered):
        alone.transact(select, deadline=1)
    for member in members:
        if member.frozen:
            member.thaw()
    for member in members:
        member.wait_connected()
    assert [row["Id"] for row in members.wait_equal("Plans")["Plans"]] == [1]


def test_a_member_that_was_stopped_catches_up(members):
    late = members.followers()[0]
    late.stop()
    members.leader().commit(insert(1))
    late.start()
    late.wait_connected()
    members.wait_equal("Plans")
    assert numbers(late) == [1]


def test_a_relay_passes_on_what_the_members_hold(house, members):
    passing = relay(house, members)
    passing.wait_connected()
    passing.commit(insert(1))
    assert numbers(members.leader()) == numbers(passing) == [1]


def test_a_server_without_a_cluster_keeps_what_it_was_given(house):
    server = standalone(house, SCHEMA)
    server.commit(insert(1))
    server.kill()
    server.start()
    assert numbers(server) == [1]
