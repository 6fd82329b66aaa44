"""The synchronisation agent of an access point, and the agents of two access points in contact with each other.

Nothing here is shared with the daemon's own code: packets are made and taken apart by sim.agent.packets alone.
"""
