// gocoap_server: what our client calls: a server on 127.0.0.2:5683, with the resources of store.md.
package main

import (
	"bytes"
	"fmt"
	"log"
	"strconv"
	"strings"
	"sync"
	"time"

	"github.com/plgd-dev/go-coap/v3/message"
	"github.com/plgd-dev/go-coap/v3/message/codes"
	"github.com/plgd-dev/go-coap/v3/mux"
	"github.com/plgd-dev/go-coap/v3/net"
	"github.com/plgd-dev/go-coap/v3/options"
	"github.com/plgd-dev/go-coap/v3/udp"

	"peer/words"
)

const delay = time.Second

func answer(w mux.ResponseWriter, code codes.Code, payload []byte, more ...message.Option) {
	var err error
	if payload == nil {
		w.Message().SetCode(code)
		for _, each := range more {
			w.Message().AddOptionBytes(each.ID, each.Value)
		}
	} else {
		err = w.SetResponse(code, message.TextPlain, bytes.NewReader(payload), more...)
	}
	if err != nil {
		log.Print(err)
	}
}

func bodyOf(r *mux.Message) []byte {
	body, err := r.ReadBody()
	if err != nil {
		log.Print(err)
	}
	return body
}

// handle answers 4.05 for the methods that have no function.
type handle map[codes.Code]func(w mux.ResponseWriter, r *mux.Message)

func (h handle) ServeCOAP(w mux.ResponseWriter, r *mux.Message) {
	if serve := h[r.Code()]; serve != nil {
		serve(w, r)
	} else {
		answer(w, codes.MethodNotAllowed, nil)
	}
}

// ---- plain resources ----

func fixed(code codes.Code, payload []byte, more ...message.Option) func(mux.ResponseWriter, *mux.Message) {
	return func(w mux.ResponseWriter, _ *mux.Message) { answer(w, code, payload, more...) }
}

func upper(w mux.ResponseWriter, r *mux.Message) {
	answer(w, codes.Changed, bytes.ToUpper(bodyOf(r)))
}

func echo(w mux.ResponseWriter, r *mux.Message) { answer(w, codes.Changed, bodyOf(r)) }

func takePattern(w mux.ResponseWriter, r *mux.Message) {
	if body := bodyOf(r); bytes.Equal(body, words.Pattern(len(body))) {
		answer(w, codes.Changed, nil)
	} else {
		answer(w, codes.BadRequest, nil)
	}
}

func query(w mux.ResponseWriter, r *mux.Message) {
	queries, err := r.Queries()
	if err != nil {
		log.Print(err)
	}
	answer(w, codes.Content, []byte(strings.Join(queries, " ")))
}

func accept(w mux.ResponseWriter, r *mux.Message) {
	format, err := r.Accept()
	switch {
	case err != nil || format == message.TextPlain:
		answer(w, codes.Content, []byte("hello"))
	case format == message.AppJSON:
		body := bytes.NewReader([]byte(`{"text":"hello"}`))
		if err := w.SetResponse(codes.Content, message.AppJSON, body); err != nil {
			log.Print(err)
		}
	default:
		answer(w, codes.NotAcceptable, nil)
	}
}

func separate(w mux.ResponseWriter, r *mux.Message) {
	conn, token, kind := w.Conn(), r.Token(), r.Type()
	time.AfterFunc(delay, func() {
		m := conn.AcquireMessage(conn.Context())
		defer conn.ReleaseMessage(m)
		m.SetCode(codes.Content)
		m.SetToken(token)
		m.SetType(kind)
		m.SetContentFormat(message.TextPlain)
		m.SetBody(bytes.NewReader([]byte("later")))
		if err := conn.WriteMessage(m); err != nil {
			log.Print(err)
		}
	})
}

// ---- conditions ----

// document has an ETag, which is its version.
type document struct {
	text    []byte
	version byte
}

func (d *document) get(w mux.ResponseWriter, r *mux.Message) {
	tag := message.Option{ID: message.ETag, Value: []byte{d.version}}
	if known, err := r.ETag(); err == nil && bytes.Equal(known, tag.Value) {
		answer(w, codes.Valid, nil, tag)
	} else {
		answer(w, codes.Content, d.text, tag)
	}
}

func (d *document) put(w mux.ResponseWriter, r *mux.Message) {
	wanted, err := r.GetOptionBytes(message.IfMatch)
	isOther := err == nil && !bytes.Equal(wanted, []byte{d.version})
	if isOther || r.HasOption(message.IfNoneMatch) {
		answer(w, codes.PreconditionFailed, nil)
		return
	}
	d.text, d.version = bodyOf(r), d.version+1
	answer(w, codes.Changed, nil)
}

// ---- observed resources ----

type observer struct {
	conn  mux.Conn
	token message.Token
	kind  message.Type
}

// observed tells its observers of each change.
type observed struct {
	lock      sync.Mutex
	text      []byte
	made      func(payload []byte) []byte // the contents that a PUT asks for
	sequence  uint32
	observers map[string]observer
}

func newObserved(text []byte, made func([]byte) []byte) *observed {
	return &observed{text: text, made: made, sequence: 1, observers: map[string]observer{}}
}

func same(payload []byte) []byte { return payload }

func patternOf(payload []byte) []byte {
	size, err := strconv.Atoi(string(payload))
	if err != nil {
		log.Print(err)
	}
	return words.Pattern(size)
}

func (o *observed) get(w mux.ResponseWriter, r *mux.Message) {
	o.lock.Lock()
	defer o.lock.Unlock()
	key := w.Conn().RemoteAddr().String() + r.Token().String()
	delete(o.observers, key)
	wanted, err := r.Options().Observe()
	if err != nil || wanted != 0 {
		answer(w, codes.Content, o.text)
		return
	}
	o.observers[key] = observer{w.Conn(), append(message.Token(nil), r.Token()...), r.Type()}
	answer(w, codes.Content, o.text)
	w.Message().SetObserve(o.sequence)
}

func (o *observed) tell(code codes.Code, body []byte) {
	o.sequence++
	for _, each := range o.observers {
		go notify(each, code, body, o.sequence)
	}
}

func notify(to observer, code codes.Code, body []byte, sequence uint32) {
	m := to.conn.AcquireMessage(to.conn.Context())
	defer to.conn.ReleaseMessage(m)
	m.SetCode(code)
	m.SetToken(to.token)
	m.SetType(to.kind)
	if code == codes.Content {
		m.SetObserve(sequence)
		m.SetContentFormat(message.TextPlain)
		m.SetBody(bytes.NewReader(body))
	}
	if err := to.conn.WriteMessage(m); err != nil {
		log.Print(err)
	}
}

func (o *observed) put(w mux.ResponseWriter, r *mux.Message) {
	o.lock.Lock()
	defer o.lock.Unlock()
	o.text = o.made(bodyOf(r))
	answer(w, codes.Changed, nil)
	o.tell(codes.Content, o.text)
}

func (o *observed) remove(w mux.ResponseWriter, _ *mux.Message) {
	o.lock.Lock()
	defer o.lock.Unlock()
	answer(w, codes.Deleted, nil)
	o.tell(codes.NotFound, nil)
	o.observers = map[string]observer{}
}

func (o *observed) handle() handle {
	return handle{codes.GET: o.get, codes.PUT: o.put, codes.DELETE: o.remove}
}

// ---- all ----

func main() {
	hello := []byte("hello")
	page := &document{hello, 1}
	location := []message.Option{{ID: message.LocationPath, Value: []byte("location")},
		{ID: message.LocationPath, Value: []byte("1")}}
	routes := map[string]handle{
		"/test": {codes.GET: fixed(codes.Content, hello), codes.PUT: fixed(codes.Changed, nil),
			codes.POST: upper, codes.DELETE: fixed(codes.Deleted, nil)},
		"/seg1/seg2/seg3": {codes.GET: fixed(codes.Content, hello)},
		"/query":          {codes.GET: query},
		"/separate":       {codes.GET: separate},
		"/location":       {codes.POST: fixed(codes.Created, nil, location...)},
		"/accept":         {codes.GET: accept},
		"/validate":       {codes.GET: page.get, codes.PUT: page.put},
		"/large": {codes.GET: fixed(codes.Content, words.Pattern(20000)), codes.PUT: takePattern,
			codes.POST: takePattern},
		"/large-echo": {codes.POST: echo},
		"/obs":        newObserved([]byte("val0"), same).handle(),
		"/obs-away":   newObserved([]byte("val0"), same).handle(),
		"/obs-large":  newObserved(words.Pattern(3000), patternOf).handle(),
	}
	router := mux.NewRouter()
	var links []string
	for path, route := range routes {
		if err := router.Handle(path, route); err != nil {
			log.Fatal(err)
		}
		link := "<" + path + ">"
		if strings.HasPrefix(path, "/obs") {
			link += ";obs"
		}
		links = append(links, link)
	}
	core := handle{codes.GET: func(w mux.ResponseWriter, _ *mux.Message) {
		body := strings.NewReader(strings.Join(links, ","))
		if err := w.SetResponse(codes.Content, message.AppLinkFormat, body); err != nil {
			log.Print(err)
		}
	}}
	if err := router.Handle("/.well-known/core", core); err != nil {
		log.Fatal(err)
	}
	router.DefaultHandle(mux.HandlerFunc(fixed(codes.NotFound, nil)))
	socket, err := net.NewListenUDP("udp4", words.Server)
	if err != nil {
		log.Fatal(err)
	}
	fmt.Println("serving")
	log.Fatal(udp.NewServer(options.WithMux(router)).Serve(socket))
}
