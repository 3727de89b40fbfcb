#!/bin/sh
# The application test's launcher of workers: a job named "die-now" loses its worker to a
# crash, one named "hang-now" to the application's timeout.
case "$*" in *die-now*) kill -SEGV $$ ;; *hang-now*) exec sleep 60 ;; esac
exec "$@"
