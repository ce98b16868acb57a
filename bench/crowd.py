"""What a client waits for and what the store needs while others crowd it, misbehave, or only want much."""

import crowd_places
import crowd_queue
import crowd_readers
import crowd_turns


def measure(workshop):
    return [row for scene in (crowd_turns, crowd_queue, crowd_readers, crowd_places) for row in scene.measure(workshop)]
