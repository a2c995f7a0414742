// gocoap_client: runs the cases with go-coap, and prints what it saw of each.
//
//	gocoap_client <file of the cases>
package main

import (
	"bytes"
	"context"
	"encoding/hex"
	"encoding/json"
	"errors"
	"fmt"
	"log"
	"os"
	"strings"
	"sync"
	"time"

	"github.com/plgd-dev/go-coap/v3/message"
	"github.com/plgd-dev/go-coap/v3/message/codes"
	"github.com/plgd-dev/go-coap/v3/message/pool"
	"github.com/plgd-dev/go-coap/v3/net/blockwise"
	"github.com/plgd-dev/go-coap/v3/options"
	"github.com/plgd-dev/go-coap/v3/udp"
	"github.com/plgd-dev/go-coap/v3/udp/client"

	"peer/words"
)

const (
	me       = "gocoap"
	noAnswer = "no answer"
)

var (
	settle   = 3 * time.Second * time.Duration(words.Slowness())
	change   = 2500 * time.Millisecond * time.Duration(words.Slowness())
	lossWait = 24 * time.Second * time.Duration(words.Slowness())
)

type request struct {
	Method    string
	Path      string
	Query     []string
	Payload   string
	Pattern   int
	Non       bool
	Tokenless bool
	Lossy     bool
	Options   map[string]any
	Steps     []string
	End       string
}

func (r request) payload() []byte {
	if r.Pattern != 0 {
		return words.Pattern(r.Pattern)
	}
	return []byte(r.Payload)
}

func (r request) patience() time.Duration {
	if r.Lossy {
		return lossWait
	}
	return settle
}

// ---- messages ----

func dial(r request) (*client.Conn, error) {
	address, szx := words.Server, blockwise.SZX1024
	if r.Lossy {
		address = words.Relay
	}
	for _, name := range []string{"block1", "block2"} {
		if exponent, ok := r.Options[name].(float64); ok {
			szx = blockwise.SZX(exponent)
		}
	}
	return udp.Dial(address, options.WithBlockwise(true, szx, 20*settle))
}

var methods = map[string]codes.Code{
	"": codes.GET, "GET": codes.GET, "POST": codes.POST, "PUT": codes.PUT, "DELETE": codes.DELETE,
}

func setOption(m *pool.Message, name string, value any) {
	bytesOf := func() []byte {
		decoded, _ := hex.DecodeString(value.(string))
		return decoded
	}
	switch name {
	case "accept":
		m.SetAccept(message.MediaType(value.(float64)))
	case "etag":
		_ = m.SetETag(bytesOf())
	case "if-match":
		m.AddOptionBytes(message.IfMatch, bytesOf())
	case "if-none-match":
		m.AddOptionBytes(message.IfNoneMatch, nil)
	}
}

// fill writes all but observe.
func fill(m *pool.Message, r request) error {
	m.SetCode(methods[r.Method])
	if !r.Tokenless {
		token, err := message.GetToken()
		if err != nil {
			return err
		}
		m.SetToken(token)
	}
	if err := m.SetPath(r.Path); err != nil {
		return err
	}
	for _, query := range r.Query {
		m.AddQuery(query)
	}
	for name, value := range r.Options {
		setOption(m, name, value)
	}
	if payload := r.payload(); len(payload) != 0 {
		m.SetContentFormat(message.TextPlain)
		m.SetBody(bytes.NewReader(payload))
	}
	m.SetType(message.Confirmable)
	if r.Non {
		m.SetType(message.NonConfirmable)
	}
	return nil
}

func errorText(err error) string {
	if errors.Is(err, context.DeadlineExceeded) {
		return noAnswer
	}
	return "error: " + err.Error()
}

func runPlain(r request) string {
	conn, err := dial(r)
	if err != nil {
		return errorText(err)
	}
	defer conn.Close()
	ctx, cancel := context.WithTimeout(context.Background(), r.patience())
	defer cancel()
	sent := conn.AcquireMessage(ctx)
	if err := fill(sent, r); err != nil {
		return errorText(err)
	}
	answer, err := conn.Do(sent)
	if err != nil {
		return errorText(err)
	}
	return words.MessageText(answer)
}

// ---- observations ----

// observers tells what the server says of the observers of a path, from where its log stood.
type observers struct {
	path  string
	start int64
}

func newObservers(path string) observers {
	info, err := os.Stat(os.Getenv("INTEROP_SERVER_LOG"))
	if err != nil {
		return observers{path: path}
	}
	return observers{path, info.Size()}
}

func (o observers) numbers() []string {
	content, err := os.ReadFile(os.Getenv("INTEROP_SERVER_LOG"))
	if err != nil {
		return nil
	}
	var found []string
	for _, line := range strings.Split(string(content[o.start:]), "\n") {
		parts := strings.Fields(line)
		if len(parts) == 3 && parts[0] == "observers" && parts[1] == o.path {
			found = append(found, parts[2])
		}
	}
	return found
}

func (o observers) waitLeft(patience time.Duration) {
	for end := time.Now().Add(patience); time.Now().Before(end); time.Sleep(100 * time.Millisecond) {
		if found := o.numbers(); len(found) != 0 && found[len(found)-1] == "0" {
			return
		}
	}
}

func (o observers) String() string {
	if found := o.numbers(); len(found) != 0 {
		return "observers " + strings.Join(found, " ")
	}
	return "observers none"
}

func control(step string) {
	runPlain(request{Method: "POST", Path: "ctl", Payload: step})
	time.Sleep(change)
}

// heard collects the texts of notifications, which come on another goroutine.
type heard struct {
	lock  sync.Mutex
	texts []string
}

func (h *heard) add(m *pool.Message) {
	h.lock.Lock()
	defer h.lock.Unlock()
	h.texts = append(h.texts, words.MessageText(m))
}

func (h *heard) all() []string {
	h.lock.Lock()
	defer h.lock.Unlock()
	return append([]string(nil), h.texts...)
}

func observe(conn *client.Conn, r request, news *heard) (interface {
	Cancel(context.Context, ...message.Option) error
}, error) {
	ctx, cancel := context.WithTimeout(context.Background(), settle)
	defer cancel()
	sent := conn.AcquireMessage(ctx)
	if err := fill(sent, r); err != nil {
		return nil, err
	}
	sent.SetObserve(0)
	return conn.DoObserve(sent, news.add)
}

func runObserve(r request) string {
	control("set " + r.Path + " 1000 val0")
	watched := newObservers(r.Path)
	conn, err := dial(r)
	if err != nil {
		return errorText(err)
	}
	defer conn.Close()
	var news heard
	observation, err := observe(conn, r, &news)
	if err != nil {
		return strings.Join(append(news.all(), errorText(err), watched.String()), " | ")
	}
	time.Sleep(settle)
	for _, step := range r.Steps {
		control(step)
	}
	patience := 5 * settle / 3
	switch r.End {
	case "vanish":
		conn.Close()
		control("set " + r.Path + " 1000 gone")
		patience = 40 * settle
	case "cancel":
		ctx, cancel := context.WithTimeout(context.Background(), settle)
		defer cancel()
		if err := observation.Cancel(ctx); err != nil {
			news.texts = append(news.texts, "cancel: "+errorText(err))
		}
	}
	if len(r.Steps) != 0 || r.End == "vanish" {
		watched.waitLeft(patience)
	}
	return strings.Join(append(news.all(), watched.String()), " | ")
}

// ---- cases ----

func run(r request) string {
	if r.Steps != nil {
		return runObserve(r)
	}
	return runPlain(r)
}

func main() {
	log.SetOutput(os.Stderr)
	content, err := os.ReadFile(os.Args[1])
	if err != nil {
		log.Fatal(err)
	}
	var cases struct {
		Direct []struct {
			ID      string
			Request request
			Cannot  map[string]string
			Slow    bool
		}
	}
	text := strings.ReplaceAll(string(content), "PEER", me)
	if err := json.Unmarshal([]byte(text), &cases); err != nil {
		log.Fatal(err)
	}
	for _, each := range cases.Direct {
		if each.Slow && os.Getenv("INTEROP_QUICK") != "" {
			continue
		}
		outcome := "cannot: " + each.Cannot[me]
		if each.Cannot[me] == "" {
			outcome = run(each.Request)
		}
		fmt.Printf("%s\t%s\n", each.ID, outcome)
	}
}
