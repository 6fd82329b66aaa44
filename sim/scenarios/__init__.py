"""What the simulated access point can play, in playing order."""

from sim.scenarios import ap_reports, bandwidth, clients, core, roles, synch, traffic, vaps

SCENARIOS = (
    core.play,
    vaps.play,
    bandwidth.play,
    traffic.play,
    synch.play,
    clients.play,
    ap_reports.play,
    roles.play,
)
