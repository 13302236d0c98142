# fish completion for vistrelle(1)

function __vistrelle_movies
    set -l movies (__fish_complete_path (commandline -ct))
    set -l chosen (string match -ri -- '^.*(?:/|\.(?:3g2|3gp|asf|avi|dv|f4v|flv|m2ts|m4v|mkv|mov|mp4|mts|mxf|ogv|qt|ts|webm|wmv))(?:\t.*)?$' $movies)
    # A movie may have any name.
    if set -q chosen[1]
        printf '%s\n' $chosen
    else
        printf '%s\n' $movies
    end
end

complete -c vistrelle -f
complete -c vistrelle -o i -x -a '(__vistrelle_movies)' -d 'the movie'
complete -c vistrelle -o o -r -F -d 'the picture, or an existing folder'
complete -c vistrelle -o w -x -a '320 640 1280 1920 3840' -d 'width in pixels'
complete -c vistrelle -o h -x -a '180 360 720 960 1080 2160' -d 'height in pixels'
complete -c vistrelle -o tc -x -d 'times, separated by "-"'
complete -c vistrelle -o y -d 'replace an existing picture'
complete -c vistrelle -o v -d 'say every step'
