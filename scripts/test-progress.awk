#!/usr/bin/awk -f
# Shortens ctest's progress: failures and what they printed in full, passed tests as one dot line for every hundred.
/^ *[0-9]+\/[0-9]+ Test +#/ {
  if ($0 ~ / Passed +/) { if (++passed % 100 == 0) { print passed " tests passed so far"; fflush() } next }
}
/^ *Start +[0-9]+:/ { next }
{ print; fflush() }
