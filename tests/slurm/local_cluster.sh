#!/bin/bash
# A one-node Slurm cluster on this machine, in a folder of its own: munged
# with its own key, socket and pid file; slurmctld and slurmd (as root) with a
# generated slurm.conf that describes this machine as the one node.
#
#   tests/slurm/local_cluster.sh start DIR   start it; prints `export SLURM_CONF=DIR/slurm.conf`
#   tests/slurm/local_cluster.sh stop DIR    stop the three daemons by their PIDs
#
# Exit status of start: 0 up, 77 Slurm or munge missing or not root (skip),
# 1 it would not start (the daemons' logs are in DIR).
set -u

command=${1:-}
dir=${2:-}
[ -n "$command" ] && [ -n "$dir" ] || { echo "usage: $0 start|stop DIR" >&2; exit 2; }

stop_pid() {   # PIDFILE: the daemon it names, TERM, then KILL after 10 s
  local file=$1 pid
  [ -s "$file" ] || return 0
  pid=$(cat "$file")
  kill -0 "$pid" 2>/dev/null || return 0
  kill -TERM "$pid" 2>/dev/null
  for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || return 0; sleep 0.1; done
  kill -KILL "$pid" 2>/dev/null
}

if [ "$command" = stop ]; then
  stop_pid "$dir/slurmd.pid"
  stop_pid "$dir/slurmctld.pid"
  stop_pid "$dir/munged.pid"
  exit 0
fi
[ "$command" = start ] || { echo "usage: $0 start|stop DIR" >&2; exit 2; }

PATH=$PATH:/usr/sbin:/sbin
for program in munged slurmctld slurmd sbatch squeue scontrol; do
  command -v "$program" >/dev/null || { echo "$program is not installed (Debian: slurm-wlm, munge)" >&2; exit 77; }
done
[ "$(id -u)" = 0 ] || { echo "slurmd runs jobs as their users only when started as root" >&2; exit 77; }

mkdir -p "$dir"/{state,spool,munge}
dir=$(cd "$dir" && pwd)
chmod 0700 "$dir/munge"

# munge: a fresh key, and everything else inside DIR.
head -c 1024 /dev/urandom >"$dir/munge/munge.key"
chmod 0400 "$dir/munge/munge.key"
munged --force --key-file="$dir/munge/munge.key" --socket="$dir/munge/munge.socket" \
  --pid-file="$dir/munged.pid" --log-file="$dir/munge/munged.log" --seed-file="$dir/munge/munged.seed" ||
  { echo "munged would not start: $dir/munge/munged.log" >&2; exit 1; }

# Two free TCP ports for slurmctld and slurmd.
free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
ctld_port=$(free_port)
slurmd_port=$(free_port)
while [ "$slurmd_port" = "$ctld_port" ]; do slurmd_port=$(free_port); done

cpus=$(nproc)
memory=$(awk '/^MemTotal:/ { print int($2 / 1024) }' /proc/meminfo)
host=$(hostname -s)
cat >"$dir/slurm.conf" <<EOF
ClusterName=flairize-test
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$ctld_port
SlurmdPort=$slurmd_port
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$dir/munge/munge.socket
SlurmUser=root
SlurmdUser=root
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
MpiDefault=none
SwitchType=switch/none
SchedulerType=sched/backfill
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU_Memory
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
JobAcctGatherType=jobacct_gather/none
ReturnToService=2
DefMemPerCPU=$((memory / cpus))
MinJobAge=300
SchedulerParameters=sched_interval=1
NodeName=$host NodeAddr=127.0.0.1 CPUs=$cpus RealMemory=$memory State=UNKNOWN
PartitionName=local Nodes=$host Default=YES MaxTime=INFINITE State=UP
EOF
export SLURM_CONF=$dir/slurm.conf

slurmctld -c -f "$SLURM_CONF" || { echo "slurmctld would not start: $dir/slurmctld.log" >&2; exit 1; }
slurmd -f "$SLURM_CONF" -N "$host" || { echo "slurmd would not start: $dir/slurmd.log" >&2; exit 1; }

# Up when the node takes jobs.
for _ in $(seq 300); do
  state=$(sinfo -h -n "$host" -o %T 2>/dev/null)
  case "$state" in
    idle*|mixed*|allocated*) echo "export SLURM_CONF=$SLURM_CONF"; exit 0 ;;
  esac
  sleep 0.1
done
echo "the node did not come up (state \"$state\"): $dir/slurmctld.log, $dir/slurmd.log" >&2
exit 1
