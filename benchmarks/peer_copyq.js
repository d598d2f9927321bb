// The peer inside a clipboard manager: the command of a global shortcut of CopyQ. It copies the selection, posts it to
// the service, pastes the answer and gives back every format of the clipboard. benchmarks/peers puts the address in and
// measures it; nothing else uses it.
var kept = []
var formats = str(clipboard('?')).split('\n')
for (var i in formats) {
    if (formats[i])
        kept.push(formats[i], clipboard(formats[i]))
}
copy()
var reply = networkPost('@URL@', JSON.stringify({text: str(clipboard())}))
copy(JSON.parse(str(reply.data)).text)
paste()
sleep(300)
copy.apply(this, kept)
