# The same with the program, on what the other two have stored: tower.sim and tower.mtx, in the working directory.
set -eu
kvomtx db ls tower.sim                                      # look: the matrices, their titles, sizes and units
kvomtx db export tower.sim 1 mass.mtx                       # a matrix of the database as a file
kvomtx info tower.mtx                                       # look: what the stiffness is like
kvomtx spy tower.mtx -o tower.png                           # a picture of its pattern
kvomtx modes tower.mtx mass.mtx --count 5 -o found.sim      # modes: frequencies and residuals; stored with both matrices
kvomtx modes tower.sim:0 tower.sim:1 --range 0 0.05 -o range.sim # of matrices in a database, all up to 0.05 Hz
kvomtx db export found.sim 2 shapes.mtx                     # the shapes, a column each, for any other program
