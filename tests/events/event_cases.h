#pragma once

// Kept apart from the test source: moc cannot read this raw string.
// One line per case: "name :: setup :: event :: expected facts".
// setup: steps fed before recording starts, "|"-separated: JSON events,
//   "pending:<name>", "search:<req>", "current:<chat id>:<chat type>".
// facts, ";"-separated; what is not named must stay empty:
//   toast=<text> sent=<command>
//   sig=<signals that fired, comma-separated>
//   ids=<row order>  row:<id>:<key>=<value> (value "-" = absent)
//   requested=<file id>  info:<chat>:<key>=<value>
//   pending=<text>  searchrows=<n>  arg:<signal>:<n>=<text>; "~" for "=": contains
//   same: the rows are untouched, no redraw
// $LONG is a 250-character message. Events only passed on to the message and pinned views
// get their rows from kPassedOn.
const char *const kPassedOn[][2] = {
    {"messageEvent", "history_begin history_clear message message_reactions messages_deleted "
                     "message_send_acked message_send_failed message_send_succeeded history_end"},
    {"pinnedEvent",
     "pinned_message pinned_none pinned_list_begin pinned_list_item pinned_list_end"}};
const char *const kCases = R"(
backend_ready ::  :: {"type":"backend_ready"} :: sig=statusTextChanged;arg:statusTextChanged:0=Backend ready
auth_state Ready ::  :: {"type":"auth_state","state":"Ready"} :: sent=chats 60;sig=authStateChanged,hubOpenRequestCheckRequested,statusTextChanged;arg:statusTextChanged:0=Auth: Ready;arg:authStateChanged:1=true
auth_state Ready again asks for no chats :: {"type":"auth_state","state":"Ready"}|{"type":"auth_state","state":"WaitCode"} :: {"type":"auth_state","state":"Ready"} :: sig=authStateChanged,hubOpenRequestCheckRequested,statusTextChanged;arg:authStateChanged:1=true
auth_state WaitCode ::  :: {"type":"auth_state","state":"WaitCode"} :: sig=authStateChanged,hubOpenRequestCheckRequested,meChanged,signedInViewResetRequested,statusTextChanged;arg:statusTextChanged:0=Auth: WaitCode;arg:authStateChanged:1=false;ids=100,200
need ::  :: {"type":"need","what":"code"} :: sig=statusTextChanged;arg:statusTextChanged:0=Need: code
code_info ::  :: {"type":"code_info","delivery":"sms"} :: 
td_error react ::  :: {"type":"td_error","json":"{\"message\":\"Too many\",\"@extra\":\"react:5\"}"} :: toast=Too many
td_error other tag ::  :: {"type":"td_error","json":"{\"message\":\"x\",\"@extra\":\"open:1\"}"} :: 
reaction_ok ::  :: {"type":"reaction_ok","chat_id":100,"id":5,"mode":"add"} :: 
reaction_error long message ::  :: {"type":"reaction_error","chat_id":1,"id":2,"mode":"add","code":400,"message":"$LONG"} :: toast=$LONG
call_update ::  :: {"type":"call_update","call_id":3,"user_id":42,"outgoing":true,"state":"ringing"} :: 
call_signaling ::  :: {"type":"call_signaling","call_id":3,"b64_len":120} :: 
message_properties ::  :: {"type":"message_properties","chat_id":100,"id":5,"can_be_replied":true} :: sig=messageEvent;arg:messageEvent:0~message_properties
message_properties_error ::  :: {"type":"message_properties_error","chat_id":100,"id":5} :: sig=messageEvent
edit_error ::  :: {"type":"edit_error","code":400,"message":"boom"} :: toast=Edit failed: boom
delete_error ::  :: {"type":"delete_error","code":403,"message":"no"} :: toast=Delete failed: no
me ::  :: {"type":"me","id":" 7 ","first_name":" Ann ","last_name":"Lee ","username":"ann","phone":"+1","photo_small_id":901} :: sig=meChanged,meDebugTextChanged;arg:meDebugTextChanged:0=ME id=7;requested=901
user peer of open chat ::  :: {"type":"user","id":42,"name":"Bob","photo_small_id":0,"status_type":" Online "} :: sig=chatHeaderSubtitleChanged;arg:chatHeaderSubtitleChanged:0=online
user is me ::  :: {"type":"user","id":7,"name":" Me Too ","photo_small_id":902,"status_type":"online"} :: sig=meChanged;requested=902
chats_begin keeps asking for the own photo ::  :: {"type":"chats_begin"} :: ids=;requested=900
chat new ::  :: {"type":"chat","id":300,"title":"Gamma","chat_type":"channel","order":"60","photo_small_id":3000,"unread_count":2,"pinned":true,"last_text":"a\nb","last_date":1700000000,"last_outgoing":false,"muted_known":true,"muted":false} :: sig=hubOpenRequestCheckRequested;ids=300,100,200;row:300:last_text=a b;row:300:unread_count=2;row:300:muted=false;row:300:last_outgoing=false;row:300:order=60;row:300:pinned=true;requested=3000
chat order 0 not written ::  :: {"type":"chat","id":301,"title":"Delta","order":0} :: sig=hubOpenRequestCheckRequested;ids=100,200,301;row:301:order=-;row:301:photo_small_id=-
chat current read outbox ::  :: {"type":"chat","id":100,"last_read_outbox_message_id":9} :: sig=currentChatReadOutboxChanged,hubOpenRequestCheckRequested;arg:currentChatReadOutboxChanged:0=3;arg:currentChatReadOutboxChanged:1=9;arg:currentChatReadOutboxChanged:2=false;row:100:last_read_outbox_message_id=9
tg_resolve_error :: pending:Durov :: {"type":"tg_resolve_error","username":"durov","code":400,"message":"not found"} :: toast=Can't open @durov: not found;pending=
tg_resolve_error no name ::  :: {"type":"tg_resolve_error","code":400,"message":"x"} :: toast=Can't open Telegram link
tg_resolve :: pending:NEWS :: {"type":"tg_resolve","username":"news","chat_id":555,"chat_type":"channel","photo_small_id":77} :: sig=openChatRequested;pending=;requested=77;arg:openChatRequested:0={"chat_type":"channel","id":"555","photo_small_id":"77","title":"@news"}
tg_resolve titled ::  :: {"type":"tg_resolve","chat_id":556,"title":"Town"} :: sig=openChatRequested;arg:openChatRequested:0={"chat_type":"","id":"556","photo_small_id":"0","title":"Town"}
tg_resolve zero chat ::  :: {"type":"tg_resolve","username":"news","chat_id":0} :: toast=Can't open @news
file_progress ::  :: {"type":"file_progress","id":5,"downloaded":10,"total":20} :: sig=fileEvent
file avatar ::  :: {"type":"file","id":700,"path":"$DATA/src.png"} :: sig=avatarReady,fileEvent;row:100:avatar_path~-144.png
file shared photo :: {"type":"chat","id":101,"order":"51","photo_small_id":700} :: {"type":"file","id":700,"path":"$DATA/src.png"} :: sig=avatarReady,fileEvent;row:100:avatar_path~-144.png;row:101:avatar_path~-144.png
reload keeps the avatar :: {"type":"file","id":700,"path":"$DATA/src.png"}|{"type":"chats_begin"} :: {"type":"chat","id":100,"title":"Alpha","order":"50","photo_small_id":700} :: sig=hubOpenRequestCheckRequested;row:100:avatar_path~-144.png
file own photo ::  :: {"type":"file","id":900,"path":"$DATA/src.png"} :: sig=avatarReady,fileEvent,meChanged
file other ::  :: {"type":"file","id":12345,"path":"$DATA/src.png"} :: sig=fileEvent;row:100:avatar_path=-
chat_title current ::  :: {"type":"chat_title","chat_id":100,"title":"Renamed"} :: sig=currentChatTitleChanged;row:100:title=Renamed;arg:currentChatTitleChanged:0=Renamed
chat_last_message ::  :: {"type":"chat_last_message","chat_id":200,"message_id":77,"date":1700000000,"content_type":"text","text":"x\ry","outgoing":true} :: ids=100,200;row:200:last_text=x y;row:200:last_message_id=77;row:200:last_date=1700000000;row:200:last_outgoing=true;row:200:last_content_type=text
chat_last_message unknown chat ::  :: {"type":"chat_last_message","chat_id":999,"message_id":78,"text":"t"} :: ids=100,200
chat_position moves ::  :: {"type":"chat_position","chat_id":200,"order":"99","pinned":true} :: ids=200,100;row:200:pinned=true;row:200:order=99
chat_position order 0 removes ::  :: {"type":"chat_position","chat_id":100,"order":0} :: ids=200
chat_unread ::  :: {"type":"chat_unread","chat_id":100,"unread_count":4} :: row:100:unread_count=4
chat_online_count current group :: {"type":"chat_info","chat_id":200,"member_count":12}|current:200:supergroup :: {"type":"chat_online_count","chat_id":200,"count":3} :: sig=chatHeaderSubtitleChanged,chatInfoChanged;info:200:online_count=3;arg:chatHeaderSubtitleChanged:0=12 members, 3 online
chat_read_outbox current ::  :: {"type":"chat_read_outbox","chat_id":100,"last_read_outbox_message_id":11} :: sig=currentChatReadOutboxChanged;row:100:last_read_outbox_message_id=11;arg:currentChatReadOutboxChanged:0=3;arg:currentChatReadOutboxChanged:1=11;arg:currentChatReadOutboxChanged:2=true
chat_notify ::  :: {"type":"chat_notify","chat_id":200,"muted_known":true,"muted":true} :: sig=chatInfoChanged;row:200:muted=true;row:200:muted_known=true
chat_info current :: {"type":"user","id":43,"status_type":"last_week"} :: {"type":"chat_info","chat_id":100,"user_id":43,"about":"hi","member_count":0} :: sig=chatHeaderSubtitleChanged,chatInfoChanged;info:100:peer_user_id=43;info:100:about=hi;arg:chatHeaderSubtitleChanged:0=last seen within a week
chat_info channel :: current:200:channel :: {"type":"chat_info","chat_id":200,"member_count":1500} :: sig=chatHeaderSubtitleChanged,chatInfoChanged;arg:chatHeaderSubtitleChanged:0=1500 subscribers
chat_info group, nobody online :: current:200:basic_group :: {"type":"chat_info","chat_id":200,"member_count":12} :: sig=chatHeaderSubtitleChanged,chatInfoChanged;arg:chatHeaderSubtitleChanged:0=12 members
chat_info_error message ::  :: {"type":"chat_info_error","chat_id":1,"code":400,"message":"gone"} :: toast=gone
chat_mute_toggled ::  :: {"type":"chat_mute_toggled","chat_id":100,"muted":true} :: toast=Muted;sig=chatInfoChanged;row:100:muted=true;row:100:muted_known=true
history_cleared current ::  :: {"type":"history_cleared","chat_id":100} :: toast=History cleared;sent=history 100 30
chat_left current ::  :: {"type":"chat_left","chat_id":100} :: toast=Left;sig=backToChatsRequested;ids=200
chat_joined ::  :: {"type":"chat_joined","chat_id":300} :: toast=Joined;sent=chats 60;sig=chatInfoChanged;info:300:is_member=true
chat_deleted other ::  :: {"type":"chat_deleted","chat_id":200} :: toast=Deleted;ids=100
action_error ::  :: {"type":"action_error","action":"leave","message":"nope"} :: toast=Action failed: nope
search_begin clears :: search:5|{"type":"search_chat","req":5,"id":1,"title":"a"} :: {"type":"search_begin","req":5} :: searchrows=0
search_chat :: search:5 :: {"type":"search_chat","req":5,"idx":0,"id":8,"title":"Found","photo_small_id":88} :: searchrows=1;requested=88
search_chat stale :: search:5 :: {"type":"search_chat","req":6,"id":8} :: searchrows=0
search_end empty :: search:5 :: {"type":"search_end","req":5} :: toast=No matches
search_end rows :: search:5|{"type":"search_chat","req":5,"id":1,"title":"a"} :: {"type":"search_end","req":5} :: sig=chatSearchResultsReady
connection_state ::  :: {"type":"connection_state","state":"ready"} :: sig=connectionStateChanged;arg:connectionStateChanged:0=ready
chats_end :: {"type":"chats_begin"}|{"type":"chat","id":300,"order":1}|{"type":"chat","id":400,"order":90} :: {"type":"chats_end"} :: sig=hubOpenRequestCheckRequested;ids=400,300
message_update last message ::  :: {"type":"message_update","chat_id":100,"id":5,"text":"edited\nnow"} :: sig=messageEvent;row:100:last_text=edited now
message_update older message ::  :: {"type":"message_update","chat_id":100,"id":4,"text":"edited"} :: sig=messageEvent;row:100:last_text=-
message_new ::  :: {"type":"message_new","chat_id":200,"id":80,"date":1700000500,"content_type":"text","text":"hi","outgoing":true} :: sig=messageEvent;ids=100,200;row:200:last_text=hi;row:200:last_message_id=80;row:200:last_outgoing=true;row:200:last_date=1700000500
message_new unknown chat inserts ::  :: {"type":"message_new","chat_id":999,"id":1,"date":5,"text":"yo"} :: sig=messageEvent;ids=100,200,999;row:999:last_text=yo
file during a reload :: {"type":"chats_begin"}|{"type":"chat","id":100,"title":"Alpha","order":"50","photo_small_id":700} :: {"type":"file","id":700,"path":"$DATA/src.png"} :: sig=avatarReady,fileEvent;row:100:avatar_path~-144.png
file again redraws nothing :: {"type":"file","id":700,"path":"$DATA/src.png"} :: {"type":"file","id":700,"path":"$DATA/src.png"} :: sig=avatarReady,fileEvent;same
zero last message id keeps the last :: {"type":"chat","id":100,"last_message_id":0} :: {"type":"message_update","chat_id":100,"id":5,"text":"edited"} :: sig=messageEvent;row:100:last_text=edited
send_ok ::  :: {"type":"send_ok"} :: 
td_closed ::  :: {"type":"td_closed"} :: sig=statusTextChanged;arg:statusTextChanged:0=TDLib closed
pending resolve on Ready :: pending: durov  :: {"type":"auth_state","state":"Ready"} :: sent=chats 60;sent=resolve durov;sig=authStateChanged,hubOpenRequestCheckRequested,statusTextChanged
pending resolve before Ready :: pending:durov :: {"type":"auth_state","state":"WaitCode"} :: sent=resolve durov;sig=authStateChanged,hubOpenRequestCheckRequested,meChanged,signedInViewResetRequested,statusTextChanged
pending resolve blank :: pending:    :: {"type":"auth_state","state":"WaitCode"} :: sig=authStateChanged,hubOpenRequestCheckRequested,meChanged,signedInViewResetRequested,statusTextChanged
line break never reaches a command :: pending:du\nrov :: {"type":"auth_state","state":"WaitCode"} :: sig=authStateChanged,hubOpenRequestCheckRequested,meChanged,signedInViewResetRequested,statusTextChanged
repeated unread leaves the model alone :: {"type":"chat_unread","chat_id":200,"unread_count":6} :: {"type":"chat_unread","chat_id":200,"unread_count":6} :: same
hub_notify_message leaves no trace ::  :: {"type":"hub_notify_message","chat_id":100} :: same
unknown type ::  :: {"type":"brand_new","chat_id":100} :: same
)";
