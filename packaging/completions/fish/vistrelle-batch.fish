# fish completion for vistrelle-batch(1)

complete -c vistrelle-batch -l jobs -x -d 'jobs at the same time'
complete -c vistrelle-batch -l memory -x -a '512M 1G 2560M 4G' -d 'memory of each process of a job'
complete -c vistrelle-batch -l timeout -x -d 'seconds of one job'
complete -c vistrelle-batch -l report -r -F -d 'a new file for the report'
complete -c vistrelle-batch -l resume -r -F -d 'a report to go on with'
complete -c vistrelle-batch -l verbose -d 'show what the picture generator says'
complete -c vistrelle-batch -l help -d 'say how to use it'
complete -c vistrelle-batch -l version -d 'say which version it is'
