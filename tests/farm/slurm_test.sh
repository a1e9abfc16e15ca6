#!/usr/bin/env bash
# slurm_test.sh SOURCE DIRECTORY: the cluster recipes of docs/recipes.md on a Slurm of this machine
# alone, with two nodes of one core each. vorn-ycnr and the Python module have to be on their paths.
# Starts munged, slurmctld and two slurmd of its own, and ends them. Exit code 77: there is no Slurm to try.
set -euo pipefail
source=$1
work=$2
for program in munged slurmctld slurmd sbatch dask vorn-ycnr; do
  command -v "$program" >/dev/null || PATH=$PATH:/usr/sbin
  command -v "$program" >/dev/null || { echo "skipped: no $program"; exit 77; }
done
[ "$(id -u)" = 0 ] || { echo "skipped: slurmd wants root"; exit 77; }
rm -rf "$work"
mkdir -p "$work"/{state,spool,log,clean,reference}
cd "$work"
PWD=$(pwd -P)

own=()
finish() {
  local code=$? pid
  for pid in "${own[@]}" $(cat ./*.pid 2>/dev/null); do kill "$pid" 2>/dev/null || true; done
  [ $code = 0 ] || [ $code = 77 ] || tail -n 5 log/* slurm-*.out 2>/dev/null
}
trap finish EXIT

# A socket's name may have 107 bytes.
sockets=$(mktemp -d /tmp/slurm.XXXXXX)
chmod 755 "$sockets"
socket=$sockets/munge
(umask 077 && head -c 64 /dev/urandom >munge.key)
munged --force --key-file="$PWD/munge.key" --socket="$socket" --pid-file="$PWD/munged.pid" \
  --log-file="$PWD/log/munged.log" --seed-file="$PWD/munge.seed"

node() { echo "NodeName=n$1 NodeHostname=$(hostname) NodeAddr=127.0.0.1 Port=$((26820 + $1)) CPUs=1 RealMemory=200"; }
cat >slurm.conf <<CONF
ClusterName=one
SlurmctldHost=$(hostname)(127.0.0.1)
SlurmctldPort=26817
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$socket
StateSaveLocation=$PWD/state
SlurmdSpoolDir=$PWD/spool/%n
SlurmctldPidFile=$PWD/slurmctld.pid
SlurmdPidFile=$PWD/slurmd.%n.pid
SlurmctldLogFile=$PWD/log/slurmctld
SlurmdLogFile=$PWD/log/slurmd.%n
SlurmdParameters=config_overrides
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
KillWait=2
$(node 1)
$(node 2)
PartitionName=all Nodes=n[1-2] Default=YES State=UP
CONF
export SLURM_CONF=$PWD/slurm.conf
slurmctld -c
slurmd -N n1
slurmd -N n2
for _ in $(seq 100); do
  [ "$(sinfo -h -t idle -o %D 2>/dev/null)" = 2 ] && break
  sleep 0.2
done
sinfo
[ "$(sinfo -h -t idle -o %D 2>/dev/null)" = 2 ] || {
  tail -n 5 log/*
  echo "skipped: Slurm's daemons do not start here"
  exit 77
}

# The shell block of the recipes that holds a text.
recipe() {
  python3 - "$source/docs/recipes.md" "$1" <<'PY'
import re, sys
blocks = re.findall(r"```sh\n(.*?)```", open(sys.argv[1]).read(), re.S)
found = [block for block in blocks if sys.argv[2] in block]
assert len(found) == 1, (sys.argv[2], len(found))
sys.stdout.write(found[0])
PY
}
drained() {
  for _ in $(seq 600); do
    [ -z "$(squeue -h)" ] && return
    sleep 0.2
  done
  squeue
  return 1
}

# Five files of a moment, and one that takes long enough to be killed in the middle.
vorn-ycnr demo -o scene --size 160x120 --noise 8 >demo.txt
vorn-ycnr tune scene/clean.png --gains 8 --rounds 1 -o sensor.json >tune.txt
for i in 0 1 2 3 4; do cp scene/noisy_gain8.png "still$i.png"; done
head -c $((1280 * 720 * 3 / 2 * 40)) /dev/urandom >long_1280x720.nv12
ls ./*.nv12 still?.png >files.txt
while read -r file; do
  vorn-ycnr denoise "$file" -o "reference/$(basename "$file")" --tuning sensor.json --gain 8
done <files.txt

recipe '#SBATCH --array' >array.sh
job=$(sbatch --parsable --array=0-5 --cpus-per-task=1 array.sh)
for _ in $(seq 300); do
  pgrep -f "denoise ./long_1280x720.nv12" >/dev/null && break
  sleep 0.1
done
scancel --full --signal=KILL "${job}_0"
drained
[ -z "$(find clean -name 'long*' -o -name '.vorn*')" ] || { echo "something half written"; ls -la clean; exit 1; }
[ "$(find clean -type f | wc -l)" = 5 ] || { echo "not five files"; ls clean; exit 1; }
touch -d '1 hour ago' clean/*
sbatch --parsable --array=0-5 --cpus-per-task=1 array.sh >/dev/null
drained
diff -r clean reference
[ "$(find clean -mmin -30 | grep -c long)" = 1 ] && [ "$(find clean -type f -mmin +30 | wc -l)" = 5 ] ||
  { echo "what was done was done again"; ls -la clean; exit 1; }
echo "job array: one of six killed, the second submission did that one alone"

# The search, on workers that Slurm starts.
recipe 'dask scheduler' | sed -e 's/--array=[^ ]*/--array=0-1/' -e 's/--cpus-per-task=[0-9]*/--cpus-per-task=1/' \
  -e 's/^dask scheduler/& --host 127.0.0.1 --no-dashboard/' -e 's/"-o"/"--rounds", "1", "-o"/' >dask.sh
bash dask.sh >dask.log 2>&1 &
own+=($!)
for _ in $(seq 300); do
  [ -e search.json ] && break
  sleep 0.2
  kill -0 "${own[-1]}" 2>/dev/null || break
done
wait "${own[-1]}" || { cat dask.log; exit 1; }
vorn-ycnr tune scene/clean.png --gains 4,8 --rounds 1 -o plain.json >plain.txt
cmp search.json plain.json
# The workers' jobs end with the search; the daemons have to see it, or the jobs' own processes stay.
drained
echo "search on workers of Slurm: the bytes of plain tune"
