#!/usr/bin/env bash
# Inside the emulated instrument: front_panel_test on the left, the virtual
# front panel on the right, in one tmux window on this terminal. Started by
# demo.sh. With DEMO_DETACHED=1 the session is made but not attached (for
# checking the demo without a terminal).
set -euo pipefail
PROGRAM=$1
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
TMUX_CMD=(tmux -L cv084-demo -f "$HERE/demo.tmux.conf")

cols=$(tput cols 2>/dev/null || echo 132)
rows=$(tput lines 2>/dev/null || echo 30)
((cols < 126)) && cols=126
((rows < 26)) && rows=26

"${TMUX_CMD[@]}" new-session -d -s demo -x "$cols" -y "$rows" -n front_panel_test \
    "cd /home/transfer/log && $PROGRAM; echo; echo \"front_panel_test ended with status \$?.\"; echo 'Results: '$CV084_EMU_STATE'/transfer/log. Press Enter to end the demo.'; read -r _; tmux -L cv084-demo kill-server"
"${TMUX_CMD[@]}" split-window -h -t demo:0 -l 44 \
    "python3 $HERE/virtual_panel.py --program-pane demo:0.0; tmux -L cv084-demo kill-server"
"${TMUX_CMD[@]}" select-pane -t demo:0.1
if [[ ${DEMO_DETACHED:-0} == 1 ]]; then
    exit 0
fi
# Ends when the session is killed (Ctrl+X, or the program's pane closing).
"${TMUX_CMD[@]}" attach -t demo || true
