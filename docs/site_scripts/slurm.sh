#!/bin/bash
# Many runs on Slurm, written by hand: edit what your cluster wants, then
#   sbatch slurm.sh
# Each task makes its share of the list, one run after the other. What is done already stays, so the
# same script makes the rest when it is submitted again.
#SBATCH --job-name=gains
#SBATCH --array=1-20
#SBATCH --cpus-per-task=1
#SBATCH --mem=500M
#SBATCH --time=04:00:00
#SBATCH --output=gains_%a.txt
export KOVR_ONLINE=${KOVR_ONLINE:-/lab/online}
exec butngain many runs.csv --output found --share "$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_COUNT"
