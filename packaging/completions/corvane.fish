# Completion of the program corvane for fish.

complete -c corvane -f

complete -c corvane -n __fish_use_subcommand -a get -d 'Download a URL'
complete -c corvane -n __fish_use_subcommand -a post -d 'Send form fields, a text or a file to a URL'
complete -c corvane -n __fish_use_subcommand -a mirror -d 'Fetch the files of a directory into a directory'
complete -c corvane -n __fish_use_subcommand -a resolve -d 'Look up the addresses of a host'
complete -c corvane -s h -l help -d 'Print help'
complete -c corvane -l version -d 'Print the versions'

set -l transfer '__fish_seen_subcommand_from get post mirror'
set -l single '__fish_seen_subcommand_from get post'
set -l any '__fish_seen_subcommand_from get post mirror resolve'
complete -c corvane -n $single -s o -l output -r -F -d 'Write into FILE'
complete -c corvane -n $single -l accept-http-errors -d 'Take the answer to a failed request for a success'
complete -c corvane -n $transfer -l user -x -a '(__fish_complete_users)' -d 'Log in as NAME'
complete -c corvane -n $transfer -l password-file -r -F -d 'The first line of FILE is the password'
complete -c corvane -n $transfer -l cacert -r -F -d 'Trust the certificates in FILE'
complete -c corvane -n $transfer -l capath -x -a '(__fish_complete_directories)' -d 'Trust the certificates in DIR'
complete -c corvane -n $transfer -l insecure -d 'Do not verify the certificate of the server'
complete -c corvane -n $transfer -l timeout -x -d 'Give up after S seconds without a connection or data'
complete -c corvane -n $transfer -l limit -x -d 'Receive at most RATE bytes a second'
complete -c corvane -n $transfer -l limit-percent -x -d 'Receive at most N percent of the measured speed'
complete -c corvane -n $transfer -l low-water -x -d 'Limit only when the speed is below RATE'
complete -c corvane -n $transfer -l no-throttle -d 'Take no part in measuring and limiting'
complete -c corvane -n $any -l json -d 'Print one JSON object about the outcome'
complete -c corvane -n $any -s q -l quiet -d 'No progress line and no warnings'
complete -c corvane -n $any -s v -l verbose -d 'Tell what is going on'
complete -c corvane -n $any -l log-file -r -F -d 'Append what is going on to FILE'

complete -c corvane -n '__fish_seen_subcommand_from get' -l resume -d 'Continue FILE where an earlier download stopped'
complete -c corvane -n '__fish_seen_subcommand_from post' -l field -x -d 'A form field, NAME=VALUE'
complete -c corvane -n '__fish_seen_subcommand_from post' -l data -x -d 'A text'
complete -c corvane -n '__fish_seen_subcommand_from post' -l file -r -F -d 'The content of a file'

set -l mirror '__fish_seen_subcommand_from mirror'
complete -c corvane -n $mirror -a '(__fish_complete_directories)'
complete -c corvane -n $mirror -l resume -d 'Keep complete files and continue partial ones'
complete -c corvane -n $mirror -l ignore -x -d 'Never fetch the file NAME'
complete -c corvane -n $mirror -l sizes -r -F -d 'Fetch the files that the list FILE names'
complete -c corvane -n $mirror -l times -r -F -d 'Give files the times in the list FILE'

complete -c corvane -n '__fish_seen_subcommand_from resolve' -a '(__fish_print_hostnames)'
