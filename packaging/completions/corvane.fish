# Completion of the program corvane for fish.

complete -c corvane -f

complete -c corvane -n __fish_use_subcommand -a get -d 'Download a URL'
complete -c corvane -n __fish_use_subcommand -a post -d 'Send form fields, a text or a file to a URL'
complete -c corvane -s h -l help -d 'Print help'
complete -c corvane -l version -d 'Print the versions'

set -l transfer '__fish_seen_subcommand_from get post'
complete -c corvane -n $transfer -s o -l output -r -F -d 'Write into FILE'
complete -c corvane -n $transfer -l accept-http-errors -d 'Take the answer to a failed request for a success'
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
complete -c corvane -n $transfer -l json -d 'Print one JSON object about the transfer'
complete -c corvane -n $transfer -s q -l quiet -d 'No progress line and no warnings'
complete -c corvane -n $transfer -s v -l verbose -d 'Tell what is going on'
complete -c corvane -n $transfer -l log-file -r -F -d 'Append what is going on to FILE'

complete -c corvane -n '__fish_seen_subcommand_from get' -l resume -d 'Continue FILE where an earlier download stopped'
complete -c corvane -n '__fish_seen_subcommand_from post' -l field -x -d 'A form field, NAME=VALUE'
complete -c corvane -n '__fish_seen_subcommand_from post' -l data -x -d 'A text'
complete -c corvane -n '__fish_seen_subcommand_from post' -l file -r -F -d 'The content of a file'
