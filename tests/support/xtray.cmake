# Xvfb with a tray host (trayer) for the tests that need a real notification area.
quorvel_add_service(xtray xtray.sh)
