# Reads an lcov trace: prints line and branch coverage per room and in all, and, behind "line" or
# "branch" and a tab each, the places that no test ran as FILE:LINE.
/^SF:/ {
  file = substr($0, 4)
  sub(root "/", "", file)
  room = file
  sub("/.*", "", room)
}
/^DA:/ {
  split(substr($0, 4), field, ",")
  lines[room]++
  if (field[2] > 0) lines_run[room]++
  else print "line\t" file ":" field[1]
}
/^BRDA:/ {
  split(substr($0, 6), field, ",")
  branches[room]++
  if (field[4] != "-" && field[4] > 0) branches_run[room]++
  else print "branch\t" file ":" field[1]
}
END {
  for (room in lines) {
    printf "summary\t%-8s lines %d of %d (%.1f %%), branches %d of %d (%.1f %%)\n", room "/",
      lines_run[room], lines[room], 100 * lines_run[room] / lines[room],
      branches_run[room], branches[room],
      branches[room] ? 100 * branches_run[room] / branches[room] : 100
  }
}
